#include "finalize/sort_table.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <thread>

#include "base/spare_processors.h"
#include "finalize/record_reader.h"
#include "finalize/record_salvage.h"
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

RecordLoss lossAt(const ScanEnd& end) {
  RecordLoss loss;
  loss.reason = end.kind == ScanEnd::kUnknownId   ? LossReason::kUnknownRecordId
                : end.kind == ScanEnd::kPastEnd ? LossReason::kRecordPastEnd
                                                : LossReason::kEmptyRecord;
  loss.offset = end.offset;
  loss.bytes = end.left;
  loss.record_id = end.record_id;
  loss.length = end.length;
  return loss;
}

void noteLoss(const ScanEnd& end, LossReport* report) {
  if (report == nullptr || !end.dropsData()) return;
  report->losses.push_back(lossAt(end));
}

bool canHoldRecords(const DataGroupBlock& group) {
  constexpr std::size_t kMaxRecordIdSize = 8;
  return group.record_id_size <= kMaxRecordIdSize && !group.record_layouts.empty();
}

// The padding before the blocks a stretched data block covers, and those blocks, are where the
// records end, not damage. `bytes` are those from where the scan stopped.
bool endsAtBlocks(ScanEnd& end, const std::uint8_t* bytes) {
  constexpr std::uint64_t kPaddingView = kBytesToTellABlock + 8;
  const std::uint64_t view = std::min(end.left, kPaddingView);
  std::optional<std::uint64_t> block = findBlockStart(bytes, view, end.left);
  if (!block) return false;
  ScanEnd probe = end;
  endDropAtBlock(probe, bytes, *block);
  if (probe.dropsData()) return false;
  end = probe;
  return true;
}

// Payload bytes each channel group has collected so far.
std::vector<std::pair<std::uint64_t, std::uint64_t>> collectedSizes(const DataGroupBlock& group,
                                                                   const SortTable& table) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> sizes;
  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    const SortEntry* entry = channel_group ? table.find(channel_group->record_id) : nullptr;
    if (entry && entry->payloads) sizes.emplace_back(channel_group->record_id, entry->payloads->size());
  }
  return sizes;
}

SalvagedStretch stretchAt(const ScanEnd& end, std::uint64_t resume, const DataGroupBlock& group,
                          const SortTable& table, SalvageSearch& search) {
  SalvagedStretch salvaged;
  salvaged.record_before = search.lastTaken();
  salvaged.lead_before = search.takeLead();
  salvaged.loss = lossAt(end);
  salvaged.loss.bytes = resume - end.offset;
  salvaged.stretch.offset = end.offset;
  salvaged.stretch.bytes = resume - end.offset;
  salvaged.collected = collectedSizes(group, table);
  return salvaged;
}

// The segments' leads: each stretch's lead behind it is the next one's lead before it.
void noteLeadAfter(std::vector<SalvagedStretch>& salvaged) {
  for (std::size_t i = 0; i + 1 < salvaged.size(); ++i) salvaged[i].lead_after = salvaged[i + 1].lead_before;
}

void salvageTooLongClaim(const DataGroupBlock& group, const SectionInMemory& section, ScanEnd& end) {
  if (end.kind != ScanEnd::kTornRecord || end.offset < section.start) return;
  RecordLayoutLookup lookup(group);
  claimTooLongIsDamage(end, group.record_id_size, lookup, section.memory.data + end.offset);
}

// Behind a damaged stretch records are read in place on one thread: every channel group's
// places are noted, each record's master value is shown to the search and the records counted.
ScanEnd collectPlacesSalvaging(const DataGroupBlock& group, const SectionInMemory& section, const SortTable& table,
                               SalvageSearch& search, std::uint64_t& records) {
  SortKey key(group);
  SortTargets targets(table);
  const std::uint8_t* base = section.memory.data;
  return scanRecordsInMemory(group, section, [&](std::uint64_t record_id, std::uint64_t offset, std::uint64_t size) {
    const SortEntry* target = targets.find(key.of(record_id));
    if (target == nullptr) return false;
    target->payloads->note(offset, size);
    search.take(record_id, base + offset, size);
    ++records;
    return true;
  });
}

// Goes on behind each damaged stretch from the scan's first stop, `end`, to the end of the
// data. Only damaged data comes here, so the records before the stop are read a second time,
// for their master values, instead of slowing every scan down by noting them.
ScanEnd salvageInMemory(const DataGroupBlock& group, const SectionInMemory& section, const SortTable& table,
                        ScanEnd end, std::vector<SalvagedStretch>& salvaged) {
  const std::uint8_t* base = section.memory.data;
  const std::uint64_t data_end = section.start + section.size;
  SalvageSearch search(group);
  scanRecordsInMemory(group, SectionInMemory{section.memory, section.start, end.offset - section.start},
                      [&](std::uint64_t record_id, std::uint64_t offset, std::uint64_t size) {
                        search.take(record_id, base + offset, size);
                        return true;
                      });
  // Every stop moves the scan on by a byte at least: a stop with nothing left is the end.
  while (end.dropsData() && end.left > 0) {
    if (endsAtBlocks(end, base + end.offset)) break;
    // The place at the end of the data is always taken, so a place is always found.
    const std::uint64_t resume = search.find(base, end.offset + 1, data_end, data_end).value_or(data_end);
    salvaged.push_back(stretchAt(end, resume, group, table, search));
    std::uint64_t records = 0;
    const SectionInMemory rest{section.memory, resume, data_end - resume};
    end = collectPlacesSalvaging(group, rest, table, search, records);
    salvageTooLongClaim(group, rest, end);
    salvaged.back().stretch.records_after = records;
  }
  noteLeadAfter(salvaged);
  if (!salvaged.empty()) salvaged.back().lead_after = search.takeLead();
  return end;
}

// The same for records read from a stream: they are copied, and their master values noted on
// the way (this path has no second look at them).
ScanEnd salvageCopies(const DataGroupBlock& group, const SortTable& table, std::vector<SalvagedStretch>& salvaged,
                      LossReport* report) {
  SortKey key(group);
  SortTargets targets(table);
  SalvageSearch search(group);
  RecordIterator records(group, true);
  const PayloadBlock* block = group.dataBlock();
  const std::uint64_t start = block ? block->payloadStart() : 0;
  std::uint64_t before = 0;  // records read before the first stretch
  for (;;) {
    std::uint64_t& count = salvaged.empty() ? before : salvaged.back().stretch.records_after;
    while (const Record* record = records.next()) {
      const SortEntry* target = targets.find(key.of(record->record_id));
      if (target == nullptr) {  // a layout without a channel group: this record alone is left out
        ScanEnd alone{ScanEnd::kUnknownId, records.position() + start, 0, record->record_id, 0};
        alone.left = group.record_id_size + record->payload_size;
        alone.offset -= alone.left;
        noteLoss(alone, report);
        continue;
      }
      target->payloads->copy(record->payload, record->payload_size);
      search.take(record->record_id, record->payload, record->payload_size);
      ++count;
    }
    ScanEnd end = records.end();
    if (!end.dropsData()) {
      noteLeadAfter(salvaged);
      if (!salvaged.empty()) salvaged.back().lead_after = search.takeLead();
      end.offset += start;
      return end;
    }
    const ScanEnd stop = end;
    SalvagedStretch stretch = stretchAt(stop, stop.offset, group, table, search);
    if (!records.resumeAfterDamage(search)) {
      noteLeadAfter(salvaged);
      if (!salvaged.empty()) salvaged.back().lead_after = stretch.lead_before;
      end = records.end();
      end.offset += start;
      return end;  // the padding before blocks, or the rest could not be read and is dropped
    }
    stretch.stretch.bytes = stretch.loss.bytes = records.position() - stop.offset;
    stretch.stretch.offset = stretch.loss.offset = stop.offset + start;
    salvaged.push_back(stretch);
  }
}

ScanEnd collectInMemory(const DataGroupBlock& group, const SectionInMemory& section, const SortTable& table,
                        std::vector<SalvagedStretch>* salvaged) {
  ScanEnd end = collectPlacesInParallel(group, section, table);
  // Both lanes stopped at the same place; salvaging goes on from there on one thread. A group
  // whose records cannot be read at all has nothing to salvage.
  if (salvaged && canHoldRecords(group)) {
    salvageTooLongClaim(group, section, end);
    if (end.dropsData()) return salvageInMemory(group, section, table, end, *salvaged);
  }
  if (end.dropsData()) {
    const std::uint8_t* dropped = section.memory.data + end.offset;
    if (std::optional<std::uint64_t> block = findBlockStart(dropped, end.left, end.left)) {
      endDropAtBlock(end, dropped, *block);
    }
  }
  return end;
}

}  // namespace

SortTable collectPayloads(const DataGroupBlock& group, LossReport* report, std::vector<SalvagedStretch>* salvaged) {
  std::optional<SectionInMemory> section = dataSectionInMemory(group);
  SortTable table = makeSortTable(group, section ? section->memory : ByteView{});
  ScanEnd end = section                                  ? collectInMemory(group, *section, table, salvaged)
                : salvaged && canHoldRecords(group) ? salvageCopies(group, table, *salvaged, report)
                                                      : collectCopies(group, table);
  noteLoss(end, report);
  return table;
}

std::unique_ptr<Stream> takeStream(SortTable& table, std::uint64_t record_id) {
  SortEntry entry;
  // A channel group whose id an earlier one already took gets nothing.
  if (!table.take(record_id, &entry) || !entry.payloads) return std::make_unique<MemoryStream>();
  return entry.payloads->release();
}

}  // namespace qm
