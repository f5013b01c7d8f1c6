#include "stream/large_buffer.h"

#include <sys/mman.h>

namespace qm {
namespace {
constexpr std::uintptr_t kHugePage = std::uintptr_t{2} << 20;
}

void adviseHugePages(void* data, std::size_t size) {
  auto begin = reinterpret_cast<std::uintptr_t>(data);
  std::uintptr_t first = (begin + kHugePage - 1) & ~(kHugePage - 1);
  std::uintptr_t last = (begin + size) & ~(kHugePage - 1);
  if (data == nullptr || last <= first) return;
  // Only a hint: where huge pages are off or scarce, ordinary pages serve as before.
  madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}

LargeBuffer allocateZeroed(std::size_t size) {
  LargeBuffer buffer(static_cast<std::uint8_t*>(std::calloc(size, 1)));
  if (buffer) adviseHugePages(buffer.get(), size);
  return buffer;
}

}  // namespace qm
