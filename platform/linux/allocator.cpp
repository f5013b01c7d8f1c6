#include "platform/allocator.h"

#include <malloc.h>

namespace qm {

void keepFreedHeapMemory(std::size_t largest_from_heap, std::size_t kept_before_trimming) {
  mallopt(M_MMAP_THRESHOLD, static_cast<int>(largest_from_heap));
  mallopt(M_TRIM_THRESHOLD, static_cast<int>(kept_before_trimming));
}

std::uint64_t freeHeapBytes() { return mallinfo2().fordblks; }

void returnFreeHeapMemory() { malloc_trim(0); }

}  // namespace qm
