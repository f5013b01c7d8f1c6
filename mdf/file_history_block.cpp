#include "mdf/file_history_block.h"

#include "mdf/block_factory.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

enum FileHistoryLink { kNext, kComment, kLinkCount };

}  // namespace

bool FileHistoryBlock::loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                                      std::int64_t fields_position) {
  if (!loadLinkSingle(ctx, stream, links[kComment], &comment)) return false;
  StreamReader reader(stream, fields_position);
  return reader.read(time) && reader.read(time_zone_offset) && reader.read(daylight_saving_offset) &&
         reader.read(time_flags);
}

std::uint8_t FileHistoryBlock::save(SaveContext& ctx, Block* next) {
  placeBlock(*this, ctx, false);
  std::vector<std::uint64_t> links(kLinkCount, 0);
  links[kNext] = linkTo(next);
  bool children = saveChild(comment, ctx, &links[kComment]);
  if (!writeHeaderAndLinks(*this, ctx, links)) return 0;
  StreamReader writer = dataSectionWriter(*this, ctx);
  bool written = writer.write(time) && writer.write(time_zone_offset) && writer.write(daylight_saving_offset) &&
                 writer.write(time_flags);
  return written && children ? 1 : 0;
}

}  // namespace qm
