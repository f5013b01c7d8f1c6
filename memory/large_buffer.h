#pragma once
// Read-ahead buffers, up to a whole input that cannot be mapped, and the decoded content of
// container layers, which a memory stream then takes over. Big ones cost more in page faults than in the copying itself;
// asking for huge pages on them makes the faults 512 times fewer where the kernel has them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "memory/mapped_blocks.h"

namespace qm {

// Large buffers are mapped blocks, kept for the next buffer of any thread once freed; smaller
// ones come from malloc.
struct LargeBufferDeleter {
  std::size_t mapped = 0;  // the block's mapped bytes; 0 for memory from malloc
  void operator()(std::uint8_t* data) const;
};
using LargeBuffer = std::unique_ptr<std::uint8_t[], LargeBufferDeleter>;

// Hints the kernel to back the whole 2 MiB pages inside [data, data + size) with huge pages.
void adviseHugePages(void* data, std::size_t size);

// Zeroed memory without touching it (the kernel hands out zero pages); null on failure.
LargeBuffer allocateZeroed(std::size_t size);
// Memory whose every byte the caller writes before reading it: memory freed earlier in the
// process is then handed out again as it is, not zeroed first. Null on failure.
LargeBuffer allocateUninitialized(std::size_t size);

// Grows the buffer to at least `capacity` bytes, keeping its contents; a large block's pages are
// moved, not its bytes. False, with the buffer untouched, when memory runs out.
bool growLargeBuffer(LargeBuffer& buffer, std::size_t capacity);

// A folder's files need buffers of about their size, one conversion after another. The large
// ones keep their own freed blocks; those that grow from small (noted places, copied payloads)
// come from the heap, which is told here to keep them too: handed back to the system, each
// conversion would pay for fresh pages again, which costs more than the work on them. Buffers
// larger than kLargestRecycledBuffer still come straight from the system and go back to it.
// Called once at start-up.
void keepFreedBuffers();

}  // namespace qm
