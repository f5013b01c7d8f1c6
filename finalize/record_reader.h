#pragma once
// Reading the records of a data group one at a time through its record layout map.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "finalize/data_section_reader.h"
#include "mdf/data_group_block.h"

namespace qm {

// One record: its id and its payload without the id. A VLSD record's payload begins with its
// 4-byte length. The bytes stay valid until the next record is read.
struct Record {
  std::uint64_t record_id = 0;
  const std::uint8_t* payload = nullptr;
  std::size_t payload_size = 0;
};

// Where and why a scan over a data section stopped. A record cut off by the end of the data is
// how a logger's file ends when it lost power, and is no loss; everything else that stops a
// scan before the end drops the bytes behind it.
struct ScanEnd {
  enum Kind { kEndOfData, kTornRecord, kUnknownId, kPastEnd, kEmptyRecord };
  Kind kind = kEndOfData;
  std::uint64_t offset = 0;  // where the unread bytes start (in the section, or in the memory scanned)
  std::uint64_t left = 0;    // unread bytes from there to the end of the data
  std::uint64_t record_id = 0;
  std::uint64_t length = 0;  // the record length claimed, for kPastEnd

  bool dropsData() const { return kind == kUnknownId || kind == kPastEnd || kind == kEmptyRecord; }
};

// A variable-length record running past the end of the data is taken for one the logger was
// cut off writing only when this little is left: loggers write records far smaller, and a
// longer claim comes from damaged bytes.
inline constexpr std::uint64_t kLargestTornRecord = 64 * 1024;

class RecordLayoutLookup;
class SalvageSearch;

// A block header's id, reserved bytes and length.
inline constexpr std::uint64_t kBytesToTellABlock = 24;

// Whether `bytes` (`left` of them) begin with what looks like an MDF4 block header ("##" and two
// capitals, zero reserved bytes, a length that fits) rather than records.
bool startsBlock(const std::uint8_t* bytes, std::uint64_t left);

// Where the first block header starts among the first `window` of `left` bytes (one that starts
// there but does not end inside the window is not looked at); none when there is none.
std::optional<std::uint64_t> findBlockStart(const std::uint8_t* bytes, std::uint64_t window, std::uint64_t left);

// The records of a stretched last data block end where the blocks written after it begin: what a
// scan drops reaches only up to there, and a scan stopped right there (or only padding before
// it) dropped nothing. `bytes` are those from where the scan stopped.
void endDropAtBlock(ScanEnd& end, const std::uint8_t* bytes, std::uint64_t block_offset);

// When salvaging: a variable-length record that `end` took for torn by the end of the data
// but that claims more than any logger writes (kLargestTornRecord) is damage, like one past the
// end further from it. `bytes` are those from where the scan stopped.
void claimTooLongIsDamage(ScanEnd& end, std::size_t id_size, RecordLayoutLookup& lookup, const std::uint8_t* bytes);

// Why no record can be read from `bytes` (`left` of them up to the end of the data), which lie
// at `offset`.
ScanEnd scanEndAt(std::size_t id_size, RecordLayoutLookup& lookup, const std::uint8_t* bytes, std::uint64_t left,
                  std::uint64_t offset);

// Reads the record at the reader's position and moves past it. Returns the bytes it took
// (record id, length prefix and payload), or -1 when its id has no layout or any part of it
// would run past the end of the data section (a torn record is never padded).
std::int64_t readRecord(const DataGroupBlock& group, DataSectionReader& reader, Record& record);

// Tells a record id's payload length; the small ids loggers use are answered from a direct
// table, so the per-record path does no hashing, and a single load, after the first record of
// each id.
class RecordLayoutLookup {
 public:
  static constexpr std::int64_t kVariable = -1;  // a VLSD record: the length comes first
  static constexpr std::int64_t kNoLayout = -2;  // no channel group has this id

  explicit RecordLayoutLookup(const DataGroupBlock& group);
  // The data bytes of the record id's channel group, or one of the two values above.
  std::int64_t payloadLength(std::uint64_t record_id) {
    if (record_id < kDirect && direct_[record_id] != kNotLooked) return direct_[record_id];
    return payloadLengthSlow(record_id);
  }

 private:
  std::int64_t payloadLengthSlow(std::uint64_t record_id);

  static constexpr std::uint64_t kDirect = 256;
  static constexpr std::int64_t kNotLooked = INT64_MIN;
  const DataGroupBlock& group_;
  std::int64_t direct_[kDirect];
};

// The same as readRecord, with the layouts found through `lookup`. Inline: sorting runs it
// for every record of the file.
inline std::int64_t readRecord(const DataGroupBlock& group, RecordLayoutLookup& lookup, DataSectionReader& reader,
                               Record& record);

// A data section that lies in memory: the data block's whole stream and where the section
// is in it (up to the end of the section or of the stream, whichever comes first).
struct SectionInMemory {
  ByteView memory;
  std::uint64_t start = 0;
  std::uint64_t size = 0;
};

// The group's data section when its data block's stream holds it in memory; none otherwise.
std::optional<SectionInMemory> dataSectionInMemory(const DataGroupBlock& group);

// Calls visit(record id, payload offset in the memory, payload size) for each record of a
// section in memory, under the same rules as readRecord, until a record cannot be read or
// visit returns false (taken as an id nobody claims). Sorting runs this for every record of a
// file, so it keeps its state in locals instead of going through a reader object. Returns
// where and why it stopped, with offsets in the memory.
template <typename Visit>
ScanEnd scanRecordsInMemory(const DataGroupBlock& group, const SectionInMemory& section, Visit&& visit);

// When the data block's stream holds its content in memory, the records are read in place.
class RecordIterator {
 public:
  // `salvaging`: an iteration that stops at damaged bytes stays there, for resumeAfterDamage.
  explicit RecordIterator(const DataGroupBlock& group, bool salvaging = false);

  // The next record, or null once a record cannot be read (the iteration is then over).
  const Record* next() {
    if (!over_ && readRecord(group_, lookup_, reader_, record_) >= 1) return &record_;
    if (!over_) noteEnd();
    over_ = true;
    return nullptr;
  }
  // Where and why the iteration ended (offsets in the data section); only once next() gave null.
  const ScanEnd& end() const { return end_; }
  // Offset in the data section of the next record, and the bytes from there to its end.
  std::uint64_t position() const { return reader_.position(); }
  std::uint64_t remaining() const { return reader_.remaining(); }

  // After a salvaging iteration stopped at bytes that drop data: moves on to the first place
  // behind them where `search` accepts records and lets the iteration go on from there (the
  // end of the data when there is none). False, with end() saying so, when the stop was only
  // the padding before the blocks a stretched data block covers, or the stream failed.
  // Reads the skipped bytes once, in pieces that overlap by at most kSalvageWindow.
  bool resumeAfterDamage(SalvageSearch& search);

 private:
  const DataGroupBlock& group_;
  RecordLayoutLookup lookup_;
  DataSectionReader reader_;  // over an empty section when the group has no data block
  bool salvaging_ = false;
  bool over_ = false;
  Record record_;
  ScanEnd end_;

  void noteEnd();
  void findRecordsEnd();
};

inline std::uint64_t littleEndianValue(const std::uint8_t* bytes, std::size_t n) {
  switch (n) {
    case 1:
      return bytes[0];
    case 2:
      return bytes[0] | static_cast<std::uint64_t>(bytes[1]) << 8;
    case 4:
      return bytes[0] | static_cast<std::uint64_t>(bytes[1]) << 8 | static_cast<std::uint64_t>(bytes[2]) << 16 |
             static_cast<std::uint64_t>(bytes[3]) << 24;
    default: {
      std::uint64_t value = 0;
      for (std::size_t i = n; i > 0; --i) value = (value << 8) | bytes[i - 1];
      return value;
    }
  }
}

inline std::int64_t readRecord(const DataGroupBlock& group, RecordLayoutLookup& lookup, DataSectionReader& reader,
                               Record& record) {
  constexpr std::size_t kVlsdLengthPrefix = 4;
  constexpr std::size_t kMaxRecordIdSize = 8;
  std::size_t id_size = group.record_id_size;
  if (id_size > kMaxRecordIdSize || group.record_layouts.empty()) return -1;
  std::uint64_t record_id = 0;
  if (id_size > 0) {
    const std::uint8_t* id_bytes = reader.ensure(id_size);
    if (id_bytes == nullptr) return -1;
    record_id = littleEndianValue(id_bytes, id_size);
  }
  std::int64_t length = lookup.payloadLength(record_id);
  if (length == RecordLayoutLookup::kNoLayout) return -1;

  std::uint64_t payload_size = static_cast<std::uint64_t>(length);
  if (length == RecordLayoutLookup::kVariable) {
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

template <typename Visit>
ScanEnd scanRecordsInMemory(const DataGroupBlock& group, const SectionInMemory& section, Visit&& visit) {
  constexpr std::size_t kScanReadAhead = 2048;  // a prefetch of an address beyond the memory is harmless
  constexpr std::size_t kVlsdLengthPrefix = 4;
  constexpr std::size_t kMaxRecordIdSize = 8;
  const std::size_t id_size = group.record_id_size;
  const std::uint64_t end = section.start + section.size;
  if (id_size > kMaxRecordIdSize || group.record_layouts.empty()) {
    return ScanEnd{ScanEnd::kUnknownId, section.start, section.size, 0, 0};
  }
  RecordLayoutLookup lookup(group);
  const std::uint8_t* const base = section.memory.data;
  for (std::uint64_t at = section.start;;) {
    const std::uint8_t* bytes = base + at;
    // Each record's place depends on the one before, so a miss stalls the whole scan; the
    // hardware's own read-ahead stops at every page boundary, this one does not.
    __builtin_prefetch(bytes + kScanReadAhead);
    std::uint64_t left = end - at;
    if (left < id_size) return scanEndAt(id_size, lookup, bytes, left, at);
    std::uint64_t record_id = id_size > 0 ? littleEndianValue(bytes, id_size) : 0;
    std::int64_t length = lookup.payloadLength(record_id);
    if (length == RecordLayoutLookup::kNoLayout) return scanEndAt(id_size, lookup, bytes, left, at);
    std::uint64_t payload_size = static_cast<std::uint64_t>(length);
    if (length == RecordLayoutLookup::kVariable) {
      if (left - id_size < kVlsdLengthPrefix) return scanEndAt(id_size, lookup, bytes, left, at);
      payload_size = kVlsdLengthPrefix + littleEndianValue(bytes + id_size, kVlsdLengthPrefix);
    }
    std::uint64_t total = id_size + payload_size;
    if (total == 0 || total > left) return scanEndAt(id_size, lookup, bytes, left, at);
    if (!visit(record_id, at + id_size, payload_size)) {
      return ScanEnd{ScanEnd::kUnknownId, at, left, record_id, 0};
    }
    at += total;
  }
}

}  // namespace qm
