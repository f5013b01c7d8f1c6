#pragma once
// Large buffers as whole anonymous mappings of huge pages, and the freed ones kept for the next
// buffer of any thread. A conversion's buffers are about the size of its file, one file after
// another; reused, they come with their pages already there, where fresh ones cost the kernel a
// zeroed page each (on a virtual machine often far more than the work done on them). Kept in
// one place, a block one worker frees serves the next file of any worker, not only its own.
#include <cstddef>
#include <mutex>
#include <vector>

namespace qm {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
// Freed blocks up to this size are kept and serve the next conversion as they are; larger ones
// come fresh from the system each time, at the price of new pages.
constexpr std::size_t kLargestRecycledBuffer = std::size_t{64} << 20;

struct MappedBlock {
  void* data = nullptr;
  std::size_t size = 0;  // whole huge pages
};

// A fresh block of `size` bytes (whole huge pages) starting on a huge-page boundary, asked to be
// backed by huge pages; empty when memory runs out. It bypasses any cache: unmapBlock frees it.
MappedBlock mapFreshBlock(std::size_t size);
void unmapBlock(MappedBlock block);

// Grows a block to `size` bytes (whole huge pages); its pages are moved, not copied. False,
// with the block untouched, when that fails.
bool growMappedBlock(MappedBlock& block, std::size_t size);

class MappedBlockCache {
 public:
  // Blocks larger than `largest_kept`, or beyond `most_kept_bytes` in all, go straight back to
  // the system.
  MappedBlockCache(std::size_t largest_kept, std::size_t most_kept_bytes)
      : largest_kept_(largest_kept), most_kept_bytes_(most_kept_bytes) {}
  // Hands the kept blocks back to the system.
  ~MappedBlockCache();
  MappedBlockCache(const MappedBlockCache&) = delete;
  MappedBlockCache& operator=(const MappedBlockCache&) = delete;

  // A block of at least `size` bytes (whole huge pages) starting on a huge-page boundary: the
  // smallest kept one large enough, else the largest kept one grown, else a fresh one. Its
  // bytes are whatever they were. Empty when memory runs out.
  MappedBlock take(std::size_t size);
  // Keeps a freed block for the next taker, or unmaps it.
  void giveBack(MappedBlock block);
  // Unmaps kept blocks, the largest first, until at most `most_kept_bytes` remain kept: what
  // the running conversions may still take leaves no room for more.
  void trimTo(std::size_t most_kept_bytes);
  std::size_t keptBytes();

 private:
  MappedBlock takeClosest(std::size_t size);
  bool keep(MappedBlock block);

  const std::size_t largest_kept_;
  const std::size_t most_kept_bytes_;
  std::mutex mutex_;
  std::vector<MappedBlock> blocks_;
  std::size_t kept_bytes_ = 0;
};

// The cache every large buffer of the process goes through: blocks up to one recycled buffer,
// and what a couple of files need at once in all, so the kept memory stays small beside the
// conversions.
MappedBlockCache& sharedBlockCache();

}  // namespace qm
