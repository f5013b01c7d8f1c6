#pragma once
// Reading the records of a data group one at a time through its record layout map.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "finalize/data_section_reader.h"

namespace qm {

class DataGroupBlock;
struct RecordLayout;

// One record: its id and its payload without the id. A VLSD record's payload begins with its
// 4-byte length. The bytes stay valid until the next record is read.
struct Record {
  std::uint64_t record_id = 0;
  const std::uint8_t* payload = nullptr;
  std::size_t payload_size = 0;
};

// Reads the record at the reader's position and moves past it. Returns the bytes it took
// (record id, length prefix and payload), or -1 when its id has no layout or any part of it
// would run past the end of the data section (a torn record is never padded).
std::int64_t readRecord(const DataGroupBlock& group, DataSectionReader& reader, Record& record);

// Walks a data group's records from the start of its data block, up to the end of its data
// section or of the stream, whichever comes first.
// Finds a record id's layout; the small ids loggers use are answered from a direct table, so
// the per-record path does no hashing after the first record of each id.
class RecordLayoutLookup {
 public:
  explicit RecordLayoutLookup(const DataGroupBlock& group);
  const RecordLayout* find(std::uint64_t record_id);

 private:
  static constexpr std::uint64_t kDirect = 256;
  const DataGroupBlock& group_;
  const RecordLayout* direct_[kDirect] = {};
};

// The same as readRecord, with the layouts found through `lookup`.
std::int64_t readRecord(const DataGroupBlock& group, RecordLayoutLookup& lookup, DataSectionReader& reader,
                        Record& record);

class RecordIterator {
 public:
  explicit RecordIterator(const DataGroupBlock& group);

  // The next record, or null once a record cannot be read (the iteration is then over).
  const Record* next();

 private:
  const DataGroupBlock& group_;
  RecordLayoutLookup lookup_;
  std::optional<DataSectionReader> reader_;  // none when the group has no data block
  Record record_;
};

}  // namespace qm
