#pragma once
// State of one tree load: the cache of loaded blocks by offset, the offsets whose load has not
// finished (a link to one of them is a cycle and fails), the nesting depth, the stream's size
// (so lengths and counts can be checked before they allocate) and the finalization's hooks.
#include <cstdint>

#include "base/hash_map.h"
#include "mdf/block.h"

namespace qm {

class LoadHooks;

class LoadContext {
 public:
  // Deeper links than this fail the load (composition nesting, conversion inverses, ...).
  static constexpr int kMaxNestingDepth = 64;

  // Measures the stream's size once; `hooks` may be null.
  explicit LoadContext(Stream* stream, LoadHooks* hooks = nullptr);
  LoadContext(const LoadContext&) = delete;
  LoadContext& operator=(const LoadContext&) = delete;

  LoadHooks* hooks() const { return hooks_; }
  std::uint64_t streamSize() const { return stream_size_; }
  // Bytes the stream holds from `position` to its end (0 beyond it).
  std::uint64_t bytesFrom(std::uint64_t position) const {
    return position < stream_size_ ? stream_size_ - position : 0;
  }

  // The block loaded from `offset`, or empty. The cache keeps its blocks only while the
  // context lives; the tree holds them afterwards.
  BlockRef cached(std::uint64_t offset) const;
  bool remember(std::uint64_t offset, const BlockRef& block);
  std::uint32_t cachedCount() const { return cache_.size(); }

  bool isLoading(std::uint64_t offset) const { return loading_.contains(offset); }
  void beginLoading(std::uint64_t offset) { loading_.insert(offset); }
  void endLoading(std::uint64_t offset) { loading_.erase(offset); }

  // False (and no change) when one more level would pass kMaxNestingDepth.
  bool enterNesting();
  void leaveNesting() { --depth_; }

 private:
  HashMap<std::uint64_t, BlockRef> cache_;
  HashSet<std::uint64_t> loading_;
  LoadHooks* hooks_;
  std::uint64_t stream_size_;
  int depth_ = 0;
};

}  // namespace qm
