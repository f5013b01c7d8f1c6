#pragma once
// Secrets (passwords, keys) do not outlive their use in memory.
#include <cstddef>

namespace qm {

// Overwrites secret bytes in a way the compiler cannot drop as a dead store.
void wipeSecret(void* data, std::size_t size);

}  // namespace qm
