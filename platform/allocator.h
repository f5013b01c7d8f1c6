#pragma once
// Hints to the heap on when it hands freed memory back to the system. Where the heap takes no
// such hints, they do nothing.
#include <cstddef>
#include <cstdint>

namespace qm {

// Blocks up to `largest_from_heap` bytes come from the heap's own pages and stay there once
// freed; freed memory at the heap's top goes back to the system only beyond
// `kept_before_trimming` bytes.
void keepFreedHeapMemory(std::size_t largest_from_heap, std::size_t kept_before_trimming);

// Bytes freed into the heap and not handed back; 0 where the heap does not tell.
std::uint64_t freeHeapBytes();
// Hands the pages of the heap's freed memory back to the system.
void returnFreeHeapMemory();

}  // namespace qm
