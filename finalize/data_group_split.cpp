#include "finalize/data_group_split.h"

#include <memory>
#include <system_error>
#include <thread>

#include "app/hash_map.h"
#include "finalize/channel_layouts.h"
#include "finalize/record_layouts.h"
#include "finalize/record_reader.h"
#include "finalize/sorted_payloads.h"
#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/payload_block.h"
#include "stream/memory_stream.h"

namespace qm {

namespace {

// The payloads of one channel group, and which scanning thread notes them. The lane lies
// outside the payloads, which the other thread writes to.
struct SortEntry {
  std::unique_ptr<SortedPayloads> payloads;
  unsigned lane = 0;
};

// Record id -> the payloads of that channel group, in record order.
using SortTable = HashMap<std::uint64_t, SortEntry>;

// A large group in memory is scanned by two threads at once, each noting the payloads of
// every other channel group (a logger's data frames and their VLSD values fall to different
// threads); reading the records twice costs less than noting all of them on one thread.
constexpr unsigned kLanes = 2;
constexpr unsigned kAllLanes = kLanes;
constexpr std::uint64_t kParallelScanThreshold = std::uint64_t{16} << 20;

// `memory`: where the records' payloads lie when they are read in place.
SortTable makeSortTable(const DataGroupBlock& group, ByteView memory) {
  SortTable table;
  unsigned lane = 0;
  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    // The first channel group with a record id keeps it.
    if (channel_group && !table.contains(channel_group->record_id)) {
      table.insert(channel_group->record_id, SortEntry{std::make_unique<SortedPayloads>(memory), lane});
      lane = (lane + 1) % kLanes;
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
  explicit SortTargets(const SortTable& table) : table_(table) {}

  const SortEntry* find(std::uint64_t record_id) {
    if (record_id < kDirect && direct_[record_id]) return direct_[record_id];
    const SortEntry* entry = table_.find(record_id);
    if (record_id < kDirect) direct_[record_id] = entry;
    return entry;
  }

 private:
  static constexpr std::uint64_t kDirect = 256;
  const SortTable& table_;
  const SortEntry* direct_[kDirect] = {};
};

// The key the records of a group are sorted under: their id, or for a group without ids the
// record id of its first channel group.
class SortKey {
 public:
  explicit SortKey(const DataGroupBlock& group)
      : idless_(group.record_id_size == 0), idless_key_(sortKeyOfIdlessRecords(group)) {}
  std::uint64_t of(std::uint64_t record_id) const { return idless_ ? idless_key_ : record_id; }

 private:
  bool idless_;
  std::uint64_t idless_key_;
};

// Records read in place: only their places are noted, for the channel groups of `lane` (or
// of all lanes). The table is only read here, so several lanes may run at once.
void collectPlaces(const DataGroupBlock& group, const SectionInMemory& section, SortTable& table, unsigned lane) {
  SortKey key(group);
  SortTargets targets(table);
  scanRecordsInMemory(group, section, [&](std::uint64_t record_id, std::uint64_t offset, std::uint64_t size) {
    const SortEntry* target = targets.find(key.of(record_id));
    if (target == nullptr) return false;  // this record and all behind it are dropped
    if (lane == kAllLanes || target->lane == lane) target->payloads->note(offset, size);
    return true;
  });
}

void collectPlacesInParallel(const DataGroupBlock& group, const SectionInMemory& section, SortTable& table) {
  if (section.size < kParallelScanThreshold || std::thread::hardware_concurrency() < kLanes) {
    collectPlaces(group, section, table, kAllLanes);
    return;
  }
  std::thread second;
  try {
    second = std::thread([&] { collectPlaces(group, section, table, 1); });
  } catch (const std::system_error&) {
    collectPlaces(group, section, table, kAllLanes);
    return;
  }
  collectPlaces(group, section, table, 0);
  second.join();
}

// Records read piece by piece from a stream: their payloads are copied.
void collectCopies(const DataGroupBlock& group, SortTable& table) {
  SortKey key(group);
  SortTargets targets(table);
  RecordIterator records(group);
  while (const Record* record = records.next()) {
    const SortEntry* target = targets.find(key.of(record->record_id));
    if (target == nullptr) return;  // this record and all behind it are dropped
    target->payloads->copy(record->payload, record->payload_size);
  }
}

std::unique_ptr<Stream> takeStream(SortTable& table, std::uint64_t record_id) {
  SortEntry entry;
  // A channel group whose id an earlier one already took gets nothing.
  if (!table.take(record_id, &entry) || !entry.payloads) return std::make_unique<MemoryStream>();
  return entry.payloads->release();
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
  std::optional<SectionInMemory> section = dataSectionInMemory(group);
  SortTable table = makeSortTable(group, section ? section->memory : ByteView{});
  if (section) {
    collectPlacesInParallel(group, *section, table);
  } else {
    collectCopies(group, table);
  }
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
