#include "mdf/conversion_block.h"

#include "mdf/block_factory.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

enum ConversionLink { kName, kUnit, kComment, kInverse, kLinkCount };

BlockRef ConversionBlock::*const kLinks[] = {&ConversionBlock::name, &ConversionBlock::unit,
                                             &ConversionBlock::comment, &ConversionBlock::inverse};

}  // namespace

bool ConversionBlock::load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList*) {
  std::vector<std::uint64_t> links;
  if (header.link_count != kLinkCount || !readLinks(stream, header, links)) return false;
  std::int64_t fields_position = streamTell(stream);
  for (std::size_t i = 0; i < std::size(kLinks); ++i) {
    if (!loadLinkSingle(ctx, stream, links[i], &(this->*kLinks[i]))) return false;
  }
  StreamReader reader(stream, fields_position);
  bool read = reader.read(conversion_type) && reader.read(precision) && reader.read(flags) &&
              reader.read(reference_count) && reader.read(value_count) && reader.read(physical_min) &&
              reader.read(physical_max);
  // The values are read behind the fixed fields whatever the block's length says, so the count
  // is checked against what the stream holds before it sizes the array.
  std::uint64_t values_start = static_cast<std::uint64_t>(fields_position) + reader.offset();
  if (!read || 8 * std::uint64_t{value_count} > ctx.bytesFrom(values_start)) return false;
  values.assign(value_count, 0.0);
  for (double& value : values) {
    if (!reader.read(value)) return false;
  }
  return true;
}

std::uint8_t ConversionBlock::save(SaveContext& ctx, Block*) {
  placeBlock(*this, ctx, false);
  std::vector<std::uint64_t> links(kLinkCount, 0);
  bool children = true;
  for (std::size_t i = 0; i < std::size(kLinks); ++i) {
    children = saveChild(this->*kLinks[i], ctx, &links[i]) && children;
  }
  if (!writeHeaderAndLinks(*this, ctx, links)) return 0;
  StreamReader writer = dataSectionWriter(*this, ctx);
  bool written = writer.write(conversion_type) && writer.write(precision) && writer.write(flags) &&
                 writer.write(reference_count) && writer.write(value_count) && writer.write(physical_min) &&
                 writer.write(physical_max);
  for (double value : values) written = written && writer.write(value);
  return written && children ? 1 : 0;
}

}  // namespace qm
