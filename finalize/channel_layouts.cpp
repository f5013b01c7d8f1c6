#include "finalize/channel_layouts.h"

#include "base/log.h"
#include "finalize/conversion.h"
#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/conversion_block.h"
#include "mdf/text_block.h"

namespace qm {

namespace {

// Value classes the layout builder understands; the channel loader never produces the two
// big-endian ones, but a channel built otherwise may carry them.
constexpr int kValueUnsignedBigEndian = 2;
constexpr int kValueFloatBigEndian = 6;

void setKindAndByteOrder(int value_class, ChannelLayout& entry) {
  switch (value_class) {
    case kValueUnsignedLittleEndian:
      entry.value_kind = ValueKind::kUnsigned;
      entry.little_endian = true;
      return;
    case kValueUnsignedBigEndian:
      entry.value_kind = ValueKind::kUnsigned;
      entry.little_endian = false;
      return;
    case kValueFloatLittleEndian:
      entry.value_kind = ValueKind::kFloat;
      entry.little_endian = true;
      return;
    case kValueFloatBigEndian:
      entry.value_kind = ValueKind::kFloat;
      entry.little_endian = false;
      return;
    case kValueByteArray:
      entry.value_kind = ValueKind::kByteArray;
      entry.little_endian = true;
      return;
    default:
      QM_LOG_W("Unsupported channel data type: %d", value_class);
      entry.value_kind = ValueKind::kUnsigned;
      entry.little_endian = false;
      return;
  }
}

ChannelLayout layoutOf(const ChannelBlock& channel) {
  ChannelLayout entry;
  entry.name = textOf(channel.name);
  entry.bit_position = static_cast<std::uint64_t>(channel.byte_offset) * 8 + channel.bit_offset;
  entry.bit_count = channel.bit_count;
  setKindAndByteOrder(channel.value_class, entry);
  if (channel.channel_kind == kChannelVariableLength) entry.variable_data = channel.data;
  entry.conversion = makeConversion(blockAs<ConversionBlock>(channel.conversion));
  return entry;
}

// Composition depth is bounded by the loader's nesting limit, so the recursion is too.
void addLeaves(const BlockList& channels, ChannelLayoutList& list) {
  for (const BlockRef& block : channels) {
    const ChannelBlock* channel = blockAs<ChannelBlock>(block);
    if (channel == nullptr) continue;
    if (!channel->composition.empty()) {
      addLeaves(channel->composition, list);
    } else {
      list.push_back(layoutOf(*channel));
    }
  }
}

}  // namespace

ChannelLayoutList& channelLayouts(ChannelGroupBlock& group) {
  group.channel_layouts.clear();
  addLeaves(group.channels, group.channel_layouts);
  return group.channel_layouts;
}

}  // namespace qm
