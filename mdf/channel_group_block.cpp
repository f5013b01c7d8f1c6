#include "mdf/channel_group_block.h"

#include "base/log.h"
#include "mdf/block_factory.h"
#include "mdf/load_hooks.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

enum ChannelGroupLink {
  kNext,
  kFirstChannel,
  kAcquisitionName,
  kAcquisitionSource,
  kSampleReduction,
  kComment,
  kLinkCount
};
constexpr std::uint64_t kReservedBeforeDataBytes = 4;

}  // namespace

void ChannelGroupBlock::deriveFlags() {
  is_vlsd = (flags & kChannelGroupVlsd) != 0;
  is_bus_event = (flags & kChannelGroupBusEvent) != 0;
  is_plain_bus_event = (flags & kChannelGroupPlainBusEvent) != 0;
}

bool ChannelGroupBlock::loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                                       std::int64_t fields_position) {
  if (!loadLinkInto(ctx, stream, links[kFirstChannel], &channels) ||
      !loadLinkSingle(ctx, stream, links[kAcquisitionName], &acquisition_name) ||
      !loadLinkSingle(ctx, stream, links[kAcquisitionSource], &acquisition_source)) {
    return false;
  }
  if (links[kSampleReduction] != kNoBlock) {
    QM_LOG_E("Unsupported parameter present in file");
    return false;
  }
  if (!loadLinkSingle(ctx, stream, links[kComment], &comment)) return false;
  StreamReader reader(stream, fields_position);
  bool read = reader.read(record_id) && reader.read(cycle_count) && reader.read(flags) && reader.read(path_separator);
  reader.skip(kReservedBeforeDataBytes);
  if (!read || !reader.read(data_bytes) || !reader.read(invalidation_bytes)) return false;
  deriveFlags();
  if (ctx.hooks()) ctx.hooks()->channelGroupLoaded(*this);
  return true;
}

std::uint8_t ChannelGroupBlock::save(SaveContext& ctx, Block* next) {
  placeBlock(*this, ctx, false);
  std::vector<std::uint64_t> links(kLinkCount, 0);
  links[kNext] = linkTo(next);
  bool children = saveChain(channels, ctx, &links[kFirstChannel]);
  children = saveChild(acquisition_name, ctx, &links[kAcquisitionName]) && children;
  children = saveChild(acquisition_source, ctx, &links[kAcquisitionSource]) && children;
  children = saveChild(comment, ctx, &links[kComment]) && children;
  if (!writeHeaderAndLinks(*this, ctx, links)) return 0;
  StreamReader writer = dataSectionWriter(*this, ctx);
  bool written = writer.write(record_id) && writer.write(cycle_count) && writer.write(flags) &&
                 writer.write(path_separator);
  writer.skip(kReservedBeforeDataBytes);
  written = written && writer.write(data_bytes) && writer.write(invalidation_bytes);
  return written && children ? 1 : 0;
}

}  // namespace qm
