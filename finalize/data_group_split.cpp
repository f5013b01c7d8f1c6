#include "finalize/data_group_split.h"

#include <memory>

#include "finalize/channel_layouts.h"
#include "finalize/record_layouts.h"
#include "finalize/record_reader.h"
#include "finalize/salvage_repair.h"
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
// The values are taken only when they are attached.
bool attachSignalData(const BlockRef& vlsd_group, std::unique_ptr<Stream>& values,
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

// Records and bytes (record ids included) of a channel group's collected payloads.
void countRecords(const ChannelGroupBlock& channel_group, Stream& payloads, std::size_t id_size, RecordLoss& loss) {
  const std::int64_t size = streamSize(&payloads);
  if (size <= 0) return;
  std::uint64_t records = 0;
  if (channel_group.flags & kChannelGroupVlsd) {
    // Each payload is its 4-byte length and that many bytes.
    std::uint8_t prefix[4];
    for (std::int64_t at = 0; at + 4 <= size; ++records) {
      if (payloads.seek(at, 0) < 0 || payloads.read(prefix, 4) != 4) break;
      at += 4 + static_cast<std::int64_t>(littleEndianValue(prefix, 4));
    }
  } else if (channel_group.data_bytes > 0) {
    records = static_cast<std::uint64_t>(size) / channel_group.data_bytes;
  }
  loss.records += records;
  loss.bytes += static_cast<std::uint64_t>(size) + records * id_size;
}

// The channel groups left in `group` are dropped with the unreferenced VLSD group at their front,
// whose values are `vlsd_values`.
void noteDroppedGroups(const DataGroupBlock& group, SortTable& table, Stream& vlsd_values, LossReport& report) {
  RecordLoss loss;
  loss.reason = LossReason::kUnreferencedSignalGroup;
  bool first = true;
  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    if (channel_group == nullptr) continue;
    if (first) {
      loss.record_id = channel_group->record_id;
      countRecords(*channel_group, vlsd_values, group.record_id_size, loss);
      first = false;
      continue;
    }
    std::unique_ptr<Stream> payloads = takeStream(table, channel_group->record_id);
    countRecords(*channel_group, *payloads, group.record_id_size, loss);
  }
  if (loss.bytes > 0) report.losses.push_back(loss);
}

// Recovered records next to the stretches are checked and their references made to fit; the
// stretches are reported first, in the order of the data, then what the repair dropped.
void repairAndReport(const DataGroupBlock& group, SortTable& table, std::vector<SalvagedStretch>& salvaged,
                     LossReport* report) {
  if (salvaged.empty()) return;
  LossReport repaired;
  repairSalvagedRecords(group, table, salvaged, &repaired);
  if (report == nullptr) return;
  for (const SalvagedStretch& stretch : salvaged) {
    report->losses.push_back(stretch.loss);
    report->skipped.push_back(stretch.stretch);
  }
  report->losses.insert(report->losses.end(), repaired.losses.begin(), repaired.losses.end());
}

}  // namespace

bool isAlreadySorted(const DataGroupBlock& group) {
  return group.record_id_size == 0 && group.channel_groups.size() == 1;
}

void splitDataGroup(DataGroupBlock& group, std::vector<BlockRef>& split_off, LossReport* report, bool salvage) {
  std::vector<SalvagedStretch> salvaged;
  SortTable table = collectPayloads(group, report, salvage ? &salvaged : nullptr);
  repairAndReport(group, table, salvaged, report);
  std::vector<BlockRef> made;
  while (!group.channel_groups.empty()) {
    BlockRef block = group.channel_groups.front();
    if (ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block)) {
      std::unique_ptr<Stream> payloads = takeStream(table, channel_group->record_id);
      if (channel_group->flags & kChannelGroupVlsd) {
        // Unreferenced: the rest of the old group is dropped with it.
        if (!attachSignalData(block, payloads, made)) {
          if (report) noteDroppedGroups(group, table, *payloads, *report);
          break;
        }
      } else {
        made.push_back(makeSortedGroup(block, std::move(payloads)));
      }
    }
    group.channel_groups.pop_front();
  }
  split_off.insert(split_off.end(), made.begin(), made.end());
}

}  // namespace qm
