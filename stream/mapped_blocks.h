#pragma once
// Large buffers as whole anonymous mappings of huge pages, and the freed ones kept for the next
// buffer of any thread. A conversion's buffers are about the size of its file, one file after
// another; reused, they come with their pages already there, where fresh ones cost the kernel a
// zeroed page each (on a virtual machine often far more than the work done on them). Kept in
// one place, a block one worker frees serves the next file of any worker, not only its own.
#include <cstddef>

namespace qm {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
// Freed blocks up to this size are kept and serve the next conversion as they are; larger ones
// come fresh from the system each time, at the price of new pages.
constexpr std::size_t kLargestRecycledBuffer = std::size_t{64} << 20;

struct MappedBlock {
  void* data = nullptr;
  std::size_t size = 0;  // whole huge pages
};

// A block of at least `size` bytes (whole huge pages) starting on a huge-page boundary: a kept
// one when one is large enough, else the largest kept one grown, else a fresh one. Its bytes
// are whatever they were. Empty when memory runs out.
MappedBlock takeMappedBlock(std::size_t size);

// Grows a block to `size` bytes (whole huge pages); its pages are moved, not copied. False,
// with the block untouched, when that fails.
bool growMappedBlock(MappedBlock& block, std::size_t size);

// Keeps a freed block for the next taker, or hands it back to the system when the kept blocks
// would grow too large.
void giveBackMappedBlock(MappedBlock block);

}  // namespace qm
