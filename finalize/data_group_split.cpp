#include "finalize/data_group_split.h"

#include <memory>

#include "app/hash_map.h"
#include "finalize/channel_layouts.h"
#include "finalize/record_layouts.h"
#include "finalize/record_reader.h"
#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/payload_block.h"
#include "stream/memory_stream.h"

namespace qm {

namespace {

// Record id -> the payloads of that channel group, in record order.
using SortTable = HashMap<std::uint64_t, std::unique_ptr<MemoryStream>>;

SortTable makeSortTable(const DataGroupBlock& group) {
  SortTable table;
  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    // The first channel group with a record id keeps it.
    if (channel_group && !table.contains(channel_group->record_id)) {
      table.insert(channel_group->record_id, std::make_unique<MemoryStream>());
    }
  }
  return table;
}

// Records of a group without record ids are read with id 0 but belong to its first channel
// group, whatever that group's stored record id is.
std::uint64_t sortKeyOfIdlessRecords(const DataGroupBlock& group) {
  for (const BlockRef& block : group.channel_groups) {
    if (const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block)) return channel_group->record_id;
  }
  return 0;
}

// Loggers use small record ids; a direct table for them spares a hash lookup per record.
class SortTargets {
 public:
  explicit SortTargets(SortTable& table) : table_(table) {}

  MemoryStream* find(std::uint64_t record_id) {
    if (record_id < kDirect && direct_[record_id]) return direct_[record_id];
    std::unique_ptr<MemoryStream>* target = table_.find(record_id);
    if (target == nullptr) return nullptr;
    if (record_id < kDirect) direct_[record_id] = target->get();
    return target->get();
  }

 private:
  static constexpr std::uint64_t kDirect = 256;
  SortTable& table_;
  MemoryStream* direct_[kDirect] = {};
};

void collectPayloads(const DataGroupBlock& group, SortTable& table) {
  bool idless = group.record_id_size == 0;
  std::uint64_t idless_key = sortKeyOfIdlessRecords(group);
  SortTargets targets(table);
  RecordIterator records(group);
  while (const Record* record = records.next()) {
    MemoryStream* target = targets.find(idless ? idless_key : record->record_id);
    if (target == nullptr) return;  // this record and all behind it are dropped
    target->write(record->payload, record->payload_size);
  }
}

std::unique_ptr<MemoryStream> takeStream(SortTable& table, std::uint64_t record_id) {
  std::unique_ptr<MemoryStream> stream;
  // A channel group whose id an earlier one already took gets nothing.
  if (!table.take(record_id, &stream) || !stream) stream = std::make_unique<MemoryStream>();
  return stream;
}

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
bool attachSignalData(const BlockRef& vlsd_group, std::unique_ptr<MemoryStream> values,
                      const std::vector<BlockRef>& split_off) {
  if (split_off.empty()) return false;
  DataGroupBlock* last = blockAs<DataGroupBlock>(split_off.back());
  ChannelGroupBlock* owner = last->channel_groups.empty() ? nullptr : blockAs<ChannelGroupBlock>(last->channel_groups.back());
  ChannelBlock* channel = owner ? findReferringChannel(owner->channels, vlsd_group.get()) : nullptr;
  if (channel == nullptr) return false;
  channel->data = PayloadBlock::makeFromMemory(BlockType::kSD, std::move(values));
  channelLayouts(*owner);  // its entry now points at the signal data
  rebuildRecordLayouts(*last);
  return true;
}

BlockRef makeSortedGroup(const BlockRef& channel_group_block, std::unique_ptr<MemoryStream> records) {
  auto group = std::make_shared<DataGroupBlock>();
  group->channel_groups.push_back(channel_group_block);
  group->data = PayloadBlock::makeFromMemory(BlockType::kDT, std::move(records));
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
  SortTable table = makeSortTable(group);
  collectPayloads(group, table);
  std::vector<BlockRef> made;
  while (!group.channel_groups.empty()) {
    BlockRef block = group.channel_groups.front();
    if (ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block)) {
      std::unique_ptr<MemoryStream> payloads = takeStream(table, channel_group->record_id);
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
