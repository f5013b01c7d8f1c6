#include "mdf/load_context.h"

namespace qm {

LoadContext::LoadContext(Stream* stream, LoadHooks* hooks) : hooks_(hooks) {
  std::int64_t size = qm::streamSize(stream);
  stream_size_ = size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

BlockRef LoadContext::cached(std::uint64_t offset) const {
  const BlockRef* hit = cache_.find(offset);
  return hit ? *hit : BlockRef{};
}

bool LoadContext::remember(std::uint64_t offset, const BlockRef& block) { return cache_.insert(offset, block); }

bool LoadContext::enterNesting() {
  if (depth_ >= kMaxNestingDepth) return false;
  ++depth_;
  return true;
}

}  // namespace qm
