#include "finalize/data_group_split.h"

#include <memory>

#include "finalize/channel_layouts.h"
#include "finalize/record_layouts.h"
#include "finalize/sort_table.h"
#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/payload_block.h"

namespace qm {

namespace {

// Depth first, each channel before its composition children.
ChannelBlock* findReferringChannel(const BlockList& channels, const Block* target) {
  for (const BlockRef& block : channels) {
    ChannelBlock* channel = blockAs<ChannelBlock>(block);
    if (channel == nullptr) continue;
    if (channel->data.get() == target) return channel;
    if (ChannelBlock* child = findReferringChannel(channel->composition, target)) return child;
  }
  return nullptr;
}

// Links the VLSD channel group's values, as a signal data block, from the channel of the last
// split-off group that refers to it. False when there is no such channel.
bool attachSignalData(const BlockRef& vlsd_group, std::unique_ptr<Stream> values,
                      const std::vector<BlockRef>& split_off) {
  if (split_off.empty()) return false;
  DataGroupBlock* last = blockAs<DataGroupBlock>(split_off.back());
  ChannelGroupBlock* owner = last->channel_groups.empty() ? nullptr : blockAs<ChannelGroupBlock>(last->channel_groups.back());
  ChannelBlock* channel = owner ? findReferringChannel(owner->channels, vlsd_group.get()) : nullptr;
  if (channel == nullptr) return false;
  channel->data = PayloadBlock::makeFromStream(BlockType::kSD, std::move(values));
  channelLayouts(*owner);  // its entry now points at the signal data
  rebuildRecordLayouts(*last);
  return true;
}

BlockRef makeSortedGroup(const BlockRef& channel_group_block, std::unique_ptr<Stream> records) {
  auto group = std::make_shared<DataGroupBlock>();
  group->channel_groups.push_back(channel_group_block);
  group->data = PayloadBlock::makeFromStream(BlockType::kDT, std::move(records));
  ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(channel_group_block);
  // Data bytes alone, as the records were read; a remainder (a torn record) is discarded.
  std::uint64_t size = dataSectionSize(group->data.get());
  channel_group->cycle_count = channel_group->data_bytes ? size / channel_group->data_bytes : 0;
  rebuildRecordLayouts(*group);
  return group;
}

}  // namespace

bool isAlreadySorted(const DataGroupBlock& group) {
  return group.record_id_size == 0 && group.channel_groups.size() == 1;
}

void splitDataGroup(DataGroupBlock& group, std::vector<BlockRef>& split_off) {
  SortTable table = collectPayloads(group);
  std::vector<BlockRef> made;
  while (!group.channel_groups.empty()) {
    BlockRef block = group.channel_groups.front();
    if (ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block)) {
      std::unique_ptr<Stream> payloads = takeStream(table, channel_group->record_id);
      if (channel_group->flags & kChannelGroupVlsd) {
        // Unreferenced: the rest of the old group is dropped with it.
        if (!attachSignalData(block, std::move(payloads), made)) break;
      } else {
        made.push_back(makeSortedGroup(block, std::move(payloads)));
      }
    }
    group.channel_groups.pop_front();
  }
  split_off.insert(split_off.end(), made.begin(), made.end());
}

}  // namespace qm
