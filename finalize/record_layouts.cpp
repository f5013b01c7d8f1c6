#include "finalize/record_layouts.h"

#include <limits>

#include "finalize/frame_decoders.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/source_block.h"

namespace qm {

namespace {

constexpr std::uint8_t kSourceTypeBus = 2;
constexpr std::int32_t kVariableLength = -1;

bool isBusSource(const ChannelGroupBlock& group) {
  const SourceBlock* source = blockAs<SourceBlock>(group.acquisition_source);
  return source != nullptr && source->source_type == kSourceTypeBus;
}

RecordLayout layoutOf(ChannelGroupBlock& group) {
  RecordLayout layout;
  layout.record_id = group.record_id;
  layout.channel_group = &group;
  if (group.flags & kChannelGroupVlsd) {
    layout.payload_length = kVariableLength;
    layout.has_decoder = false;
    return layout;
  }
  // Larger sizes cannot be records of any real file; capped, they simply never fit the data.
  constexpr std::uint32_t kLargest = std::numeric_limits<std::int32_t>::max();
  layout.payload_length = static_cast<std::int32_t>(group.data_bytes < kLargest ? group.data_bytes : kLargest);
  if (isBusSource(group)) {
    FrameDecoder decoder = nullptr;
    std::uint8_t number = kDecoderPlain;
    if (classifyFrameChannels(group.channel_layouts, &decoder, &number)) layout.decoder = number;
  }
  return layout;
}

}  // namespace

void rebuildRecordLayouts(DataGroupBlock& group) {
  group.record_layouts.clear();
  ChannelGroupBlock* first = nullptr;
  for (const BlockRef& block : group.channel_groups) {
    ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    if (channel_group == nullptr) continue;
    if (first == nullptr) first = channel_group;
    group.record_layouts.insert(channel_group->record_id, layoutOf(*channel_group));
  }
  if (group.record_id_size != 0 || first == nullptr) return;
  // Without record ids every record belongs to the one channel group and is read with id 0.
  RecordLayout only = layoutOf(*first);
  group.record_layouts.clear();
  group.record_layouts.insert(0, only);
}

}  // namespace qm
