#pragma once
// Blocks that sit in a sibling chain (data groups, channel groups, channels, file history):
// link 0 is the next sibling. They load in two steps, links first and content later, so that
// the factory can walk a chain of any length in a loop while keeping the order in which a
// recursive load would have done the work.
#include <cstdint>
#include <vector>

#include "mdf/block.h"

namespace qm {

class ChainBlock : public Block {
 public:
  using Block::Block;

  ChainBlock* asChain() override { return this; }

  // Step 1: checks the link count against the type's, reads the links and remembers where the
  // data section starts. The stream stands right behind the 24-byte header.
  bool readOwnLinks(LoadContext& ctx, Stream* stream, const BlockHeader& header);
  std::uint64_t nextLink() const { return links_.empty() ? kNoBlock : links_[0]; }
  // Step 2: loads the children (every link but the next one) and the fields.
  bool loadContent(LoadContext& ctx, Stream* stream);

  // Both steps plus the next sibling, for a chain block loaded on its own.
  bool load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list) override;

 protected:
  // The type's own part of step 2; `links` are the links as read, `fields_position` the first
  // byte behind them.
  virtual bool loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                              std::int64_t fields_position) = 0;

 private:
  std::vector<std::uint64_t> links_;  // only between the two steps
  std::int64_t fields_position_ = 0;
};

}  // namespace qm
