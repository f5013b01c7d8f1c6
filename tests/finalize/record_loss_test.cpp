// What finalization reports as dropped: complete records it could not place. A torn last record
// and blocks covered by a stretched last data block are the normal end of a logger's file.
#include "finalize/record_loss.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/opened_file.h"
#include "tests/support/mdf_builder.h"

namespace qm {
namespace {

using test::InputKind;
using test::MdfBuilder;
using test::OpenedFile;
using Handle = MdfBuilder::Handle;

std::string r1(std::uint64_t id, std::string_view payload) { return MdfBuilder::record(id, 1, payload); }

// Channel groups 1 (2 bytes) and 2 (variable length, referred to by a channel of group 1), then
// 3 (1 byte), in one data group with 1-byte ids. The data block comes last, as a logger writes
// it, unless `blocks_after`: then the stretched data block covers the blocks written after it.
std::string loggerFile(const std::string& records, bool referenced = true, bool blocks_after = false) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0025});
  Handle data = b.data(records);
  b.setLength(data, 24);
  if (!blocks_after) b.place(data, 8192);
  Handle values = b.channelGroup({.record_id = 2, .flags = kChannelGroupVlsd});
  Handle frame = b.channel({.name = b.text("frame"), .data = referenced ? values : 0, .channel_type = 1,
                            .data_type = 10, .bit_count = 64});
  Handle first = b.channelGroup({.first_channel = frame, .record_id = 1, .data_bytes = 2});
  Handle last = b.channelGroup({.record_id = 3, .data_bytes = 1});
  b.chain({first, values, last});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = first, .data = data, .record_id_size = 1})});
  return b.bytes();
}

struct Finalized {
  LossReport report;
  std::uint64_t data_offset = 0;  // where the records start in the file
  std::string saved;
};

Finalized finalizeWithReport(const std::string& bytes, InputKind kind) {
  OpenedFile file(bytes, kind);
  Finalized result;
  result.data_offset = file.group(0)->dataBlock()->payloadStart();
  finalize(file.file.get(), &result.report);
  result.saved = test::savedBytes(file.file.get());
  return result;
}

class RecordLoss : public ::testing::TestWithParam<InputKind> {};

TEST_P(RecordLoss, NormalEndsOfALoggerFileLoseNothing) {
  const std::string vlsd = MdfBuilder::vlsdRecord(2, 1, "hello");
  const std::string cases[] = {
      r1(1, "ab") + vlsd + r1(3, "c"),
      r1(1, "ab") + vlsd + r1(1, "c"),                                  // a fixed record torn by the end
      r1(1, "ab") + vlsd.substr(0, 7),                                  // a variable-length one torn
      r1(1, "ab") + vlsd.substr(0, 3),                                  // its length prefix torn
      r1(1, "ab") + MdfBuilder::vlsdRecord(2, 1, std::string(60000, 'v')).substr(0, 50000),
  };
  for (const std::string& records : cases) {
    LossReport report = finalizeWithReport(loggerFile(records), GetParam()).report;
    EXPECT_FALSE(report.any()) << records.size() << ": " << describeLosses(report).c_str();
  }
  // The stretched last data block runs over the blocks behind it, and the padding before them.
  EXPECT_FALSE(finalizeWithReport(loggerFile(r1(1, "ab") + vlsd, true, true), GetParam()).report.any());
  EXPECT_FALSE(finalizeWithReport(loggerFile(r1(1, "ab") + vlsd + r1(3, "c"), true, true), GetParam()).report.any());
}

TEST_P(RecordLoss, UnknownIdDropsEverythingBehindIt) {
  const std::string good = r1(1, "ab") + MdfBuilder::vlsdRecord(2, 1, "hi");
  const std::string rest = r1(9, "??") + r1(1, "cd") + r1(3, "e");
  Finalized lossy = finalizeWithReport(loggerFile(good + rest), GetParam());
  ASSERT_EQ(lossy.report.losses.size(), 1u);
  const qm::RecordLoss& loss = lossy.report.losses[0];
  EXPECT_EQ(loss.reason, LossReason::kUnknownRecordId);
  EXPECT_EQ(loss.record_id, 9u);
  EXPECT_EQ(loss.offset, lossy.data_offset + good.size());
  EXPECT_EQ(loss.bytes, rest.size());
  EXPECT_EQ(describeLosses(lossy.report),
            SmallString::format("%zu bytes dropped from offset %llu: record id 9 is not known", rest.size(),
                                static_cast<unsigned long long>(loss.offset)));
  // Over the blocks written behind the data, the loss ends where they (and their padding) begin.
  Finalized covering = finalizeWithReport(loggerFile(good + rest, true, true), GetParam());
  ASSERT_EQ(covering.report.losses.size(), 1u);
  EXPECT_EQ(covering.report.losses[0].bytes, rest.size() + 6);  // 18 bytes of records, padded to 24
  // Reporting changes nothing in the output.
  OpenedFile plain(loggerFile(good + rest), GetParam());
  finalize(plain.file.get());
  EXPECT_EQ(test::savedBytes(plain.file.get()), lossy.saved);
}

TEST_P(RecordLoss, LongVariableLengthClaimIsALossNotATornRecord) {
  // Damaged bytes that read as a known variable-length id with a huge length, far from the end.
  std::string damaged = r1(2, "") + MdfBuilder::u32(0x7FFFFFFF) + std::string(70000, '\xee');
  Finalized lossy = finalizeWithReport(loggerFile(r1(1, "ab") + damaged), GetParam());
  ASSERT_EQ(lossy.report.losses.size(), 1u);
  EXPECT_EQ(lossy.report.losses[0].reason, LossReason::kRecordPastEnd);
  EXPECT_EQ(lossy.report.losses[0].bytes, damaged.size());
  EXPECT_EQ(lossy.report.losses[0].length, 1u + 4u + 0x7FFFFFFFu);
}

TEST_P(RecordLoss, UnreferencedVariableLengthGroupDropsItAndTheGroupsBehind) {
  std::string records = r1(1, "ab") + MdfBuilder::vlsdRecord(2, 1, "xyz") + r1(3, "c") + MdfBuilder::vlsdRecord(2, 1, "") +
                        r1(3, "d") + r1(1, "ef");
  Finalized lossy = finalizeWithReport(loggerFile(records, false), GetParam());
  ASSERT_EQ(lossy.report.losses.size(), 1u);
  const qm::RecordLoss& loss = lossy.report.losses[0];
  EXPECT_EQ(loss.reason, LossReason::kUnreferencedSignalGroup);
  EXPECT_EQ(loss.record_id, 2u);
  EXPECT_EQ(loss.records, 4u);
  EXPECT_EQ(loss.bytes, (1 + 4 + 3) + (1 + 4) + 2 * (1 + 1));
  EXPECT_EQ(describeLosses(lossy.report),
            "4 records (17 bytes) dropped: no channel refers to the variable-length group of record id 2");
}

INSTANTIATE_TEST_SUITE_P(InMemoryAndStreamed, RecordLoss, ::testing::Values(InputKind::kInMemory, InputKind::kStreamed));

TEST(LossReport, SeveralLossesAreSummedInOneLine) {
  LossReport report;
  report.losses.push_back({LossReason::kUnknownRecordId, 100, 50, 0, 7, 0});
  report.losses.push_back({LossReason::kUnreferencedSignalGroup, 0, 30, 3, 2, 0});
  EXPECT_EQ(describeLosses(report), "50 bytes dropped from offset 100: record id 7 is not known; 2 losses, 80 bytes in all");
}

}  // namespace
}  // namespace qm
