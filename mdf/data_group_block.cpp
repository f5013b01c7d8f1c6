#include "mdf/data_group_block.h"

#include "mdf/block_factory.h"
#include "mdf/load_hooks.h"
#include "mdf/payload_block.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

enum DataGroupLink { kNext, kFirstChannelGroup, kData, kComment, kLinkCount };
constexpr std::uint8_t kReservedZeros[7] = {};

}  // namespace

bool DataGroupBlock::loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                                    std::int64_t fields_position) {
  if (!loadLinkInto(ctx, stream, links[kFirstChannelGroup], &channel_groups) ||
      !loadLinkSingle(ctx, stream, links[kData], &data) || !loadLinkSingle(ctx, stream, links[kComment], &comment)) {
    return false;
  }
  StreamReader reader(stream, fields_position);
  if (!reader.read(record_id_size)) return false;
  if (ctx.hooks()) ctx.hooks()->dataGroupLoaded(*this);
  return true;
}

std::uint8_t DataGroupBlock::save(SaveContext& ctx, Block* next) {
  placeBlock(*this, ctx, false);
  std::vector<std::uint64_t> links(kLinkCount, 0);
  links[kNext] = linkTo(next);
  bool children = saveChain(channel_groups, ctx, &links[kFirstChannelGroup]);
  children = saveChild(data, ctx, &links[kData]) && children;
  children = saveChild(comment, ctx, &links[kComment]) && children;
  if (!writeHeaderAndLinks(*this, ctx, links)) return 0;
  StreamReader writer = dataSectionWriter(*this, ctx);
  bool written = writer.write(record_id_size) && writer.writeBytes(kReservedZeros, sizeof kReservedZeros);
  return written && children ? 1 : 0;
}

PayloadBlock* DataGroupBlock::dataBlock() const { return blockAs<PayloadBlock>(data); }

}  // namespace qm
