#pragma once
// Read-ahead buffers, up to a whole input that cannot be mapped, and the decoded content of
// container layers, which a memory stream then takes over. Big ones cost more in page faults than in the copying itself;
// asking for huge pages on them makes the faults 512 times fewer where the kernel has them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace qm {

// Freed buffers up to this size stay in the process and serve the next conversion as they are
// (the program tells the allocator so at start-up); larger ones come fresh from the system each
// time, at the price of new pages.
constexpr std::size_t kLargestRecycledBuffer = std::size_t{64} << 20;

struct FreeDeleter {
  void operator()(void* p) const { std::free(p); }
};
using LargeBuffer = std::unique_ptr<std::uint8_t[], FreeDeleter>;

// Hints the kernel to back the whole 2 MiB pages inside [data, data + size) with huge pages.
void adviseHugePages(void* data, std::size_t size);

// Zeroed memory without touching it (the kernel hands out zero pages); null on failure.
LargeBuffer allocateZeroed(std::size_t size);
// Memory whose every byte the caller writes before reading it: memory freed earlier in the
// process is then handed out again as it is, not zeroed first. Null on failure.
LargeBuffer allocateUninitialized(std::size_t size);

// Grows (or shrinks) the buffer to `capacity` bytes, keeping its contents; a large block's pages
// are moved, not its bytes. False, with the buffer untouched, when memory runs out.
bool growLargeBuffer(LargeBuffer& buffer, std::size_t capacity);

}  // namespace qm
