#include "memory/mapped_blocks.h"

#include <algorithm>
#include <new>

#include "memory/speed_helpers.h"
#include "platform/pages.h"

namespace qm {
namespace {

// Of two kept blocks, the one closer to a request: one that fits beats one that does not; of
// two that fit the smaller, of two that do not the larger (it needs the fewest fresh pages).
bool closer(std::size_t candidate, std::size_t best, std::size_t wanted) {
  const bool fits = candidate >= wanted;
  const bool best_fits = best >= wanted;
  if (fits != best_fits) return fits;
  return fits ? candidate < best : candidate > best;
}

}  // namespace

MappedBlock mapFreshBlock(std::size_t size) {
  void* data = allocatePages(size, kHugePage);
  if (data == nullptr) return {};
  // Only a hint: where huge pages are off or scarce, ordinary pages serve.
  if (kSpeedHelpers.huge_pages) hintHugePages(data, size);
  return {data, size};
}

void unmapBlock(MappedBlock block) { freePages(block.data, block.size); }

bool growMappedBlock(MappedBlock& block, std::size_t size) {
  if (size <= block.size) return true;
  void* grown = growPages(block.data, block.size, size, kHugePage);
  if (grown == nullptr) return false;
  block = {grown, size};
  return true;
}

MappedBlockCache::~MappedBlockCache() {
  for (const MappedBlock& block : blocks_) unmapBlock(block);
}

MappedBlock MappedBlockCache::take(std::size_t size) {
  MappedBlock block = takeClosest(size);
  if (block.data != nullptr && block.size < size && !growMappedBlock(block, size)) {
    unmapBlock(block);
    block = {};
  }
  return block.data != nullptr ? block : mapFreshBlock(size);
}

void MappedBlockCache::giveBack(MappedBlock block) {
  if (block.data != nullptr && !keep(block)) unmapBlock(block);
}

MappedBlock MappedBlockCache::takeClosest(std::size_t size) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (blocks_.empty()) return {};
  std::size_t chosen = 0;
  for (std::size_t i = 1; i < blocks_.size(); ++i) {
    if (closer(blocks_[i].size, blocks_[chosen].size, size)) chosen = i;
  }
  MappedBlock block = blocks_[chosen];
  blocks_[chosen] = blocks_.back();
  blocks_.pop_back();
  kept_bytes_ -= block.size;
  return block;
}

bool MappedBlockCache::keep(MappedBlock block) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (block.size > largest_kept_ || block.size > most_kept_bytes_ - kept_bytes_) return false;
  try {
    blocks_.push_back(block);
  } catch (const std::bad_alloc&) {
    return false;
  }
  kept_bytes_ += block.size;
  return true;
}

void MappedBlockCache::trimTo(std::size_t most_kept_bytes) {
  std::lock_guard<std::mutex> lock(mutex_);
  while (kept_bytes_ > most_kept_bytes) {
    auto largest = std::max_element(blocks_.begin(), blocks_.end(),
                                    [](const MappedBlock& a, const MappedBlock& b) { return a.size < b.size; });
    unmapBlock(*largest);
    kept_bytes_ -= largest->size;
    *largest = blocks_.back();
    blocks_.pop_back();
  }
}

std::size_t MappedBlockCache::keptBytes() {
  std::lock_guard<std::mutex> lock(mutex_);
  return kept_bytes_;
}

MappedBlockCache& sharedBlockCache() {
  // Never destroyed: a buffer freed while the program exits still has a cache to go back to.
  constexpr std::size_t kLargestKept = kSpeedHelpers.kept_buffers ? kLargestRecycledBuffer : 0;
  static auto* cache = new MappedBlockCache(kLargestKept, 2 * kLargestKept);
  return *cache;
}

}  // namespace qm
