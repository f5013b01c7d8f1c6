#pragma once
// How much memory the process may use and how many files it may hold open.
#include <cstdint>

namespace qm {

// Bytes of physical memory in the machine; 0 when the system does not tell.
std::uint64_t physicalMemory();

// Bytes of memory the process may use where a container or a service manager limits it (the
// tightest of the limits that apply); UINT64_MAX without such a limit.
std::uint64_t memoryLimit();

// Files the process may hold open at once; UINT64_MAX without a limit or when the system does
// not tell.
std::uint64_t openFileLimit();

}  // namespace qm
