#include "finalize/record_reader.h"

#include "mdf/data_group_block.h"
#include "mdf/payload_block.h"

namespace qm {

namespace {

constexpr std::size_t kVlsdLengthPrefix = 4;
constexpr std::size_t kMaxRecordIdSize = 8;

std::uint64_t littleEndianValue(const std::uint8_t* bytes, std::size_t n) {
  std::uint64_t value = 0;
  for (std::size_t i = n; i > 0; --i) value = (value << 8) | bytes[i - 1];
  return value;
}

}  // namespace

RecordLayoutLookup::RecordLayoutLookup(const DataGroupBlock& group) : group_(group) {}

const RecordLayout* RecordLayoutLookup::find(std::uint64_t record_id) {
  if (record_id < kDirect && direct_[record_id] != nullptr) return direct_[record_id];
  const RecordLayout* layout = group_.record_layouts.find(record_id);
  if (record_id < kDirect) direct_[record_id] = layout;
  return layout;
}

std::int64_t readRecord(const DataGroupBlock& group, DataSectionReader& reader, Record& record) {
  RecordLayoutLookup lookup(group);
  return readRecord(group, lookup, reader, record);
}

std::int64_t readRecord(const DataGroupBlock& group, RecordLayoutLookup& lookup, DataSectionReader& reader,
                        Record& record) {
  std::size_t id_size = group.record_id_size;
  if (id_size > kMaxRecordIdSize || group.record_layouts.empty()) return -1;
  std::uint64_t record_id = 0;
  if (id_size > 0) {
    const std::uint8_t* id_bytes = reader.ensure(id_size);
    if (id_bytes == nullptr) return -1;
    record_id = littleEndianValue(id_bytes, id_size);
  }
  const RecordLayout* layout = lookup.find(record_id);
  if (layout == nullptr) return -1;

  std::uint64_t payload_size = static_cast<std::uint32_t>(layout->payload_length);
  if (layout->payload_length == -1) {
    const std::uint8_t* prefix = reader.ensure(id_size + kVlsdLengthPrefix);
    if (prefix == nullptr) return -1;
    payload_size = kVlsdLengthPrefix + littleEndianValue(prefix + id_size, kVlsdLengthPrefix);
  }
  std::uint64_t total = id_size + payload_size;
  if (total == 0) return 0;  // an empty record would never move the position on
  // A length the rest of the section cannot hold fails here, before any buffer grows for it.
  const std::uint8_t* bytes = reader.ensure(total);
  if (bytes == nullptr) return -1;
  record.record_id = record_id;
  record.payload = bytes + id_size;
  record.payload_size = static_cast<std::size_t>(payload_size);
  reader.consume(static_cast<std::size_t>(total));
  return static_cast<std::int64_t>(total);
}

RecordIterator::RecordIterator(const DataGroupBlock& group) : group_(group), lookup_(group) {
  PayloadBlock* block = group.dataBlock();
  if (block != nullptr) reader_.emplace(block->payloadStream(), block->dataSectionSize());
}

const Record* RecordIterator::next() {
  if (!reader_) return nullptr;
  if (readRecord(group_, lookup_, *reader_, record_) < 1) {
    reader_.reset();
    return nullptr;
  }
  return &record_;
}

}  // namespace qm
