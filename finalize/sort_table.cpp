#include "finalize/sort_table.h"

#include <optional>
#include <system_error>
#include <thread>

#include "base/spare_processors.h"
#include "finalize/record_reader.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/payload_block.h"
#include "stream/memory_stream.h"

namespace qm {

namespace {

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
ScanEnd collectPlaces(const DataGroupBlock& group, const SectionInMemory& section, const SortTable& table,
                      unsigned lane) {
  SortKey key(group);
  SortTargets targets(table);
  return scanRecordsInMemory(group, section, [&](std::uint64_t record_id, std::uint64_t offset, std::uint64_t size) {
    const SortEntry* target = targets.find(key.of(record_id));
    if (target == nullptr) return false;  // this record and all behind it are dropped
    if (lane == kAllLanes || target->lane == lane) target->payloads->note(offset, size);
    return true;
  });
}

// Both lanes read the same records, so they stop at the same place.
ScanEnd collectPlacesInParallel(const DataGroupBlock& group, const SectionInMemory& section, const SortTable& table) {
  if (section.size < kParallelScanThreshold || usableProcessors() < kLanes || !processorToSpare()) {
    return collectPlaces(group, section, table, kAllLanes);
  }
  std::thread second;
  try {
    second = std::thread([&] { collectPlaces(group, section, table, 1); });
  } catch (const std::system_error&) {
    return collectPlaces(group, section, table, kAllLanes);
  }
  ScanEnd end = collectPlaces(group, section, table, 0);
  second.join();
  return end;
}

// Records read piece by piece from a stream: their payloads are copied. Offsets in the end are
// the unwrapped file's.
ScanEnd collectCopies(const DataGroupBlock& group, const SortTable& table) {
  SortKey key(group);
  SortTargets targets(table);
  RecordIterator records(group);
  ScanEnd end;
  while (const Record* record = records.next()) {
    const SortEntry* target = targets.find(key.of(record->record_id));
    if (target == nullptr) {  // this record and all behind it are dropped
      const std::uint64_t size = group.record_id_size + record->payload_size;
      end = ScanEnd{ScanEnd::kUnknownId, 0, 0, record->record_id, 0};
      end.offset = records.position() - size;
      end.left = records.remaining() + size;
      break;
    }
    target->payloads->copy(record->payload, record->payload_size);
  }
  if (end.kind == ScanEnd::kEndOfData) end = records.end();
  if (const PayloadBlock* block = group.dataBlock()) end.offset += block->payloadStart();
  return end;
}

void noteLoss(const ScanEnd& end, LossReport* report) {
  if (report == nullptr || !end.dropsData()) return;
  RecordLoss loss;
  loss.reason = end.kind == ScanEnd::kUnknownId   ? LossReason::kUnknownRecordId
                : end.kind == ScanEnd::kPastEnd ? LossReason::kRecordPastEnd
                                                : LossReason::kEmptyRecord;
  loss.offset = end.offset;
  loss.bytes = end.left;
  loss.record_id = end.record_id;
  loss.length = end.length;
  report->losses.push_back(loss);
}

ScanEnd collectInMemory(const DataGroupBlock& group, const SectionInMemory& section, const SortTable& table) {
  ScanEnd end = collectPlacesInParallel(group, section, table);
  if (end.dropsData()) {
    const std::uint8_t* dropped = section.memory.data + end.offset;
    if (std::optional<std::uint64_t> block = findBlockStart(dropped, end.left, end.left)) {
      endDropAtBlock(end, dropped, *block);
    }
  }
  return end;
}

}  // namespace

SortTable collectPayloads(const DataGroupBlock& group, LossReport* report) {
  std::optional<SectionInMemory> section = dataSectionInMemory(group);
  SortTable table = makeSortTable(group, section ? section->memory : ByteView{});
  noteLoss(section ? collectInMemory(group, *section, table) : collectCopies(group, table), report);
  return table;
}

std::unique_ptr<Stream> takeStream(SortTable& table, std::uint64_t record_id) {
  SortEntry entry;
  // A channel group whose id an earlier one already took gets nothing.
  if (!table.take(record_id, &entry) || !entry.payloads) return std::make_unique<MemoryStream>();
  return entry.payloads->release();
}

}  // namespace qm
