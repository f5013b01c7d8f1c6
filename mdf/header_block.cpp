#include "mdf/header_block.h"

#include <vector>

#include "base/log.h"
#include "mdf/block_factory.h"
#include "mdf/id_block.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

enum HeaderLink { kFirstDataGroup, kFirstFileHistory, kChannelHierarchy, kAttachment, kEvent, kComment, kLinkCount };

}  // namespace

bool HeaderBlock::load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList*) {
  std::vector<std::uint64_t> links;
  if (header.link_count != kLinkCount || !readLinks(stream, header, links)) return false;
  std::int64_t fields_position = streamTell(stream);
  if (!loadLinkInto(ctx, stream, links[kFirstDataGroup], &data_groups) ||
      !loadLinkInto(ctx, stream, links[kFirstFileHistory], &file_history)) {
    return false;
  }
  if (links[kChannelHierarchy] != kNoBlock || links[kAttachment] != kNoBlock || links[kEvent] != kNoBlock) {
    QM_LOG_E("Unsupported parameter present in file");
    return false;
  }
  if (!loadLinkSingle(ctx, stream, links[kComment], &comment)) return false;
  StreamReader reader(stream, fields_position);
  bool read = reader.read(start_time) && reader.read(time_zone_offset) && reader.read(daylight_saving_offset) &&
              reader.read(time_flags) && reader.read(time_quality) && reader.read(flags);
  reader.skip(1);
  return read && reader.read(start_angle) && reader.read(start_distance);
}

std::uint8_t HeaderBlock::save(SaveContext& ctx, Block*) {
  if (ctx.position != kHeaderBlockOffset) return 0;
  placeBlock(*this, ctx, false);
  std::vector<std::uint64_t> links(kLinkCount, 0);
  bool children = saveChain(data_groups, ctx, &links[kFirstDataGroup]);
  children = saveChain(file_history, ctx, &links[kFirstFileHistory]) && children;
  children = saveChild(comment, ctx, &links[kComment]) && children;
  if (!writeHeaderAndLinks(*this, ctx, links)) return 0;
  StreamReader writer = dataSectionWriter(*this, ctx);
  bool written = writer.write(start_time) && writer.write(time_zone_offset) &&
                 writer.write(daylight_saving_offset) && writer.write(time_flags) && writer.write(time_quality) &&
                 writer.write(flags);
  writer.skip(1);
  written = written && writer.write(start_angle) && writer.write(start_distance);
  return written && children ? 1 : 0;
}

}  // namespace qm
