#include "mdf/chain_block.h"

#include "mdf/block_factory.h"

namespace qm {

bool ChainBlock::readOwnLinks(LoadContext&, Stream* stream, const BlockHeader& header) {
  if (header.link_count != defaultBlockHeader(type()).link_count) return false;
  if (!readLinks(stream, header, links_)) return false;
  fields_position_ = streamTell(stream);
  return fields_position_ >= 0;
}

bool ChainBlock::loadContent(LoadContext& ctx, Stream* stream) {
  bool loaded = !links_.empty() && loadOwnContent(ctx, stream, links_, fields_position_);
  links_ = {};
  return loaded;
}

bool ChainBlock::load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list) {
  return readOwnLinks(ctx, stream, header) && loadLinkInto(ctx, stream, nextLink(), list) &&
         loadContent(ctx, stream);
}

}  // namespace qm
