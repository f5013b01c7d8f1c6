#include "finalize/record_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/opened_file.h"
#include "tests/support/mdf_builder.h"

namespace qm {
namespace {

using test::MdfBuilder;
using test::OpenedFile;
using Strings = std::vector<std::string>;

// One data group: a fixed group (2 data bytes) and a VLSD group (id 2).
std::string fileWith(const std::string& records, std::uint8_t id_bytes = 1, std::uint64_t fixed_id = 1,
                     std::uint64_t claimed_length = 0) {
  MdfBuilder b;
  auto fixed = b.channelGroup({.record_id = fixed_id, .data_bytes = 2});
  b.chain({fixed, b.channelGroup({.record_id = 2, .flags = kChannelGroupVlsd})});
  auto dt = b.data(records);
  if (claimed_length) b.setLength(dt, claimed_length);
  b.header({.first_data_group = b.dataGroup({.first_channel_group = fixed, .data = dt, .record_id_size = id_bytes})});
  return b.bytes();
}

TEST(RecordReader, RecordIdAndVlsdLengthPrefix) {
  OpenedFile two_byte_id(fileWith(std::string("\x34\x12", 2) + "ab", 2, 0x1234));
  RecordIterator records(*two_byte_id.group(0));
  const Record* record = records.next();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->record_id, 0x1234u);

  OpenedFile vlsd(fileWith(MdfBuilder::vlsdRecord(2, 1, "hello") + MdfBuilder::record(1, 1, "xy")));
  PayloadBlock* data = vlsd.group(0)->dataBlock();
  DataSectionReader reader(data->payloadStream(), data->dataSectionSize());
  Record first;
  EXPECT_EQ(readRecord(*vlsd.group(0), reader, first), 1 + 4 + 5);
  EXPECT_EQ(first.payload_size, 9u);
}

TEST(RecordReader, IterationEndsAtTheFirstRecordThatCannotBeWhollyRead) {
  const std::string ok = MdfBuilder::record(1, 1, "ok");
  struct Case {
    const char* what;
    std::string tail;
  } cases[] = {
      {"torn fixed record", MdfBuilder::record(1, 1, "x")},
      {"torn length prefix", std::string("\x02\x05\x00", 3)},
      {"torn VLSD value", MdfBuilder::record(2, 1, MdfBuilder::u32(6) + "abc")},
      {"hostile VLSD length", MdfBuilder::record(2, 1, MdfBuilder::u32(0xFFFFFFF0u) + "abc")},
      {"unknown record id", MdfBuilder::record(7, 1, "ok") + ok},
  };
  for (const Case& c : cases) {
    OpenedFile file(fileWith(ok + c.tail));
    ASSERT_TRUE(file.file) << c.what;
    EXPECT_EQ(test::recordsOf(*file.group(0)), Strings{"ok"}) << c.what;
  }
  // A data block claiming 2^62 bytes is read only as far as the file goes.
  OpenedFile huge(fileWith(ok + ok, 1, 1, std::uint64_t{1} << 62));
  EXPECT_EQ(test::recordsOf(*huge.group(0)), (Strings{"ok", "ok"}));
}

TEST(RecordReader, RecordsSpanningPiecesAndOneLargerThanAPiece) {
  std::string data;
  Strings expected;
  for (int i = 0; i < 30000; ++i) {  // 3-byte records: pieces end mid-record
    std::string payload = {static_cast<char>(i), static_cast<char>(i >> 8)};
    data += MdfBuilder::record(1, 1, payload);
    expected.push_back(payload);
    if (i == 20000) {
      std::string big(100000, 'v');
      data += MdfBuilder::vlsdRecord(2, 1, big);
      expected.push_back(MdfBuilder::u32(100000) + big);
    }
  }
  OpenedFile file(fileWith(data));
  EXPECT_TRUE(test::recordsOf(*file.group(0)) == expected);
}

}  // namespace
}  // namespace qm
