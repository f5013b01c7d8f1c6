#include "mdf/channel_block.h"

#include "mdf/block_factory.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

enum ChannelLink { kNext, kComposition, kName, kSource, kConversion, kData, kUnit, kComment, kLinkCount };

// The six links that point to one block each, in link order.
BlockRef ChannelBlock::*const kSingleLinks[] = {&ChannelBlock::name,       &ChannelBlock::source,
                                                &ChannelBlock::conversion, &ChannelBlock::data,
                                                &ChannelBlock::unit,       &ChannelBlock::comment};

}  // namespace

ChannelKind channelKindOf(std::uint8_t channel_type) {
  switch (channel_type) {
    case kChannelFixedLength:
    case kChannelVariableLength:
    case kChannelMaster:
    case kChannelVirtualData:
      return static_cast<ChannelKind>(channel_type);
    default:
      return kChannelUnsupported;
  }
}

ValueClass valueClassOf(std::uint8_t data_type) {
  switch (data_type) {
    case 0:
      return kValueUnsignedLittleEndian;
    case 4:
      return kValueFloatLittleEndian;
    case 10:
      return kValueByteArray;
    default:
      return kValueUnsupported;
  }
}

bool ChannelBlock::loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                                  std::int64_t fields_position) {
  if (!loadLinkInto(ctx, stream, links[kComposition], &composition)) return false;
  for (std::size_t i = 0; i < std::size(kSingleLinks); ++i) {
    if (!loadLinkSingle(ctx, stream, links[kName + i], &(this->*kSingleLinks[i]))) return false;
  }
  StreamReader reader(stream, fields_position);
  bool read = reader.read(channel_type) && reader.read(sync_type) && reader.read(data_type) &&
              reader.read(bit_offset) && reader.read(byte_offset) && reader.read(bit_count) && reader.read(flags) &&
              reader.read(invalidation_bit_position) && reader.read(precision);
  reader.skip(1);
  read = read && reader.read(attachment_count) && reader.read(value_range_min) && reader.read(value_range_max) &&
         reader.read(limit_min) && reader.read(limit_max) && reader.read(extended_limit_min) &&
         reader.read(extended_limit_max);
  if (!read) return false;
  channel_kind = channelKindOf(channel_type);
  value_class = valueClassOf(data_type);
  return true;
}

std::uint8_t ChannelBlock::save(SaveContext& ctx, Block* next) {
  placeBlock(*this, ctx, false);
  std::vector<std::uint64_t> links(kLinkCount, 0);
  links[kNext] = linkTo(next);
  bool children = saveChain(composition, ctx, &links[kComposition]);
  for (std::size_t i = 0; i < std::size(kSingleLinks); ++i) {
    children = saveChild(this->*kSingleLinks[i], ctx, &links[kName + i]) && children;
  }
  if (!writeHeaderAndLinks(*this, ctx, links)) return 0;
  StreamReader writer = dataSectionWriter(*this, ctx);
  bool written = writer.write(channel_type) && writer.write(sync_type) && writer.write(data_type) &&
                 writer.write(bit_offset) && writer.write(byte_offset) && writer.write(bit_count) &&
                 writer.write(flags) && writer.write(invalidation_bit_position) && writer.write(precision);
  writer.skip(1);
  written = written && writer.write(attachment_count) && writer.write(value_range_min) &&
            writer.write(value_range_max) && writer.write(limit_min) && writer.write(limit_max) &&
            writer.write(extended_limit_min) && writer.write(extended_limit_max);
  checkSavePosition(*this, ctx);
  return written && children ? 1 : 0;
}

}  // namespace qm
