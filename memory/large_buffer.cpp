#include "memory/large_buffer.h"

#include "memory/speed_helpers.h"
#include "platform/allocator.h"
#include "platform/pages.h"

namespace qm {
namespace {

std::size_t roundToHugePages(std::size_t size) { return (size + kHugePage - 1) & ~(kHugePage - 1); }

// The largest size that still rounds up to whole huge pages.
constexpr std::size_t kLargestMappable = SIZE_MAX - kHugePage;

// Under the address sanitizer every buffer comes from malloc, where a read past its end is caught;
// in a mapped block it would land in the block's unused rest.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kEveryBufferFromMalloc = true;
#else
constexpr bool kEveryBufferFromMalloc = false;
#endif

}  // namespace

void LargeBufferDeleter::operator()(std::uint8_t* data) const {
  if (mapped == 0) {
    std::free(data);
  } else {
    sharedBlockCache().giveBack({data, mapped});
  }
}

void adviseHugePages(void* data, std::size_t size) {
  // Smaller blocks cannot hold a huge page, and may share their pages with other allocations.
  if (!kSpeedHelpers.huge_pages || data == nullptr || size < kHugePage) return;
  // Only a hint: where huge pages are off or scarce, ordinary pages serve as before. It covers
  // every page the block touches, so that realloc can still grow the block by moving its pages.
  hintHugePages(data, size);
}

LargeBuffer allocateZeroed(std::size_t size) {
  LargeBuffer buffer(static_cast<std::uint8_t*>(std::calloc(size, 1)));
  if (buffer) adviseHugePages(buffer.get(), size);
  return buffer;
}

LargeBuffer allocateUninitialized(std::size_t size) {
  if (kEveryBufferFromMalloc || size < kHugePage || size > kLargestMappable) {
    LargeBuffer buffer(static_cast<std::uint8_t*>(std::malloc(size)));
    if (buffer) adviseHugePages(buffer.get(), size);
    return buffer;
  }
  // A large block starts on a huge-page boundary and fills whole huge pages, so that the kernel
  // can back all of it with them. A block that starts or ends inside a huge page gets small
  // pages there, and the first touch of each small page costs far more (on this kind of
  // virtual machine, a 10 MiB read into fresh memory took 20-35 ms that way, 3-8 ms aligned).
  MappedBlock block = sharedBlockCache().take(roundToHugePages(size));
  return LargeBuffer(static_cast<std::uint8_t*>(block.data), LargeBufferDeleter{block.size});
}

bool growLargeBuffer(LargeBuffer& buffer, std::size_t capacity) {
  if (const std::size_t mapped = buffer.get_deleter().mapped; mapped != 0) {
    if (capacity > kLargestMappable) return false;
    MappedBlock block{buffer.get(), mapped};
    if (!growMappedBlock(block, roundToHugePages(capacity))) return false;
    static_cast<void>(buffer.release());
    buffer = LargeBuffer(static_cast<std::uint8_t*>(block.data), LargeBufferDeleter{block.size});
    return true;
  }
  void* grown = std::realloc(buffer.get(), capacity);
  if (!grown) return false;
  static_cast<void>(buffer.release());
  buffer.reset(static_cast<std::uint8_t*>(grown));
  adviseHugePages(grown, capacity);
  return true;
}

void keepFreedBuffers() {
  if (!kSpeedHelpers.kept_buffers) return;
  constexpr std::size_t kKeptBeforeTrimming = std::size_t{1} << 30;
  keepFreedHeapMemory(kLargestRecycledBuffer, kKeptBeforeTrimming);
}

}  // namespace qm
