// Salvaging a logger's records behind damaged stretches: where the search takes records up
// again, what is reported, and how references into variable-length values are kept right.
#include "finalize/record_salvage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "tests/support/opened_file.h"
#include "tests/support/mdf_builder.h"

namespace qm {
namespace {

using test::InputKind;
using test::MdfBuilder;
using test::OpenedFile;
using Handle = MdfBuilder::Handle;

// Channel groups 1 (a frame: time, then the 4-byte offset of its value in group 2), 2 (the
// variable-length values) and 3 (time and one byte), with 1-byte ids; the data block last.
std::string loggerFile(const std::string& records) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0025});
  Handle data = b.data(records);
  b.setLength(data, 24);
  b.place(data, 8192);
  Handle values = b.channelGroup({.record_id = 2, .flags = kChannelGroupVlsd});
  Handle time = b.channel({.name = b.text("t"), .channel_type = 2, .bit_count = 64});
  Handle value = b.channel({.next = time, .name = b.text("value"), .data = values, .channel_type = 1,
                            .byte_offset = 8, .bit_count = 32});
  Handle frame = b.channelGroup({.first_channel = value, .record_id = 1, .data_bytes = 12});
  Handle other_time = b.channel({.name = b.text("t3"), .channel_type = 2, .bit_count = 64});
  Handle other = b.channelGroup({.first_channel = other_time, .record_id = 3, .data_bytes = 9});
  b.chain({frame, values, other});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = frame, .data = data, .record_id_size = 1})});
  return b.bytes();
}

// A logger's records: each frame's value right before it, and every third time a record of
// group 3. Remembers where every record starts.
struct Records {
  std::string bytes;
  std::vector<std::uint64_t> starts;
  std::uint64_t values = 0;  // bytes of values so far

  static std::string valueOf(std::uint64_t time) { return "v" + std::to_string(time * 7); }
  void add(const std::string& record) {
    starts.push_back(bytes.size());
    bytes += record;
  }
  static Records logger(int frames) {
    Records r;
    for (int i = 0; i < frames; ++i) {
      const std::uint64_t time = 1000 + 10 * static_cast<std::uint64_t>(i);
      const std::string value = valueOf(time);
      r.add(MdfBuilder::vlsdRecord(2, 1, value));
      r.add(MdfBuilder::record(1, 1, MdfBuilder::u64(time) + MdfBuilder::u32(static_cast<std::uint32_t>(r.values))));
      r.values += 4 + value.size();
      if (i % 3 == 0) r.add(MdfBuilder::record(3, 1, MdfBuilder::u64(time + 1) + "x"));
    }
    return r;
  }
};

struct Salvaged {
  LossReport report;
  std::uint64_t data_offset = 0;
  std::vector<std::uint64_t> frame_times;  // of the frames whose value reads as the one written
  std::uint64_t wrong_values = 0;          // frames whose reference names another value
  std::vector<std::uint64_t> other_times;
  std::string saved;
};

Salvaged salvage(const std::string& records, InputKind kind) {
  OpenedFile file(loggerFile(records), kind);
  Salvaged result;
  result.data_offset = file.group(0)->dataBlock()->payloadStart();
  finalize(file.file.get(), &result.report, true);
  result.saved = test::savedBytes(file.file.get());
  OpenedFile out(result.saved);
  for (std::size_t g = 0; g < out.groupCount(); ++g) {
    const ChannelGroupBlock* group = test::channelGroup(out.group(g));
    const std::string data = test::payloadOf(out.group(g)->data);
    if (group->record_id == 3) {
      for (std::size_t at = 0; at + 9 <= data.size(); at += 9) result.other_times.push_back(test::littleEndianAt(data, at, 8));
      EXPECT_EQ(group->cycle_count, data.size() / 9);
      continue;
    }
    std::string values;
    for (const ChannelLayout& layout : group->channel_layouts) {
      if (layout.variable_data) values = test::payloadOf(layout.variable_data);
    }
    EXPECT_EQ(group->cycle_count, data.size() / 12);
    for (std::size_t at = 0; at + 12 <= data.size(); at += 12) {
      const std::uint64_t time = test::littleEndianAt(data, at, 8);
      const std::uint64_t offset = test::littleEndianAt(data, at + 8, 4);
      const std::string expected = Records::valueOf(time);
      const bool right = offset + 4 <= values.size() && test::littleEndianAt(values, offset, 4) == expected.size() &&
                         values.compare(offset + 4, expected.size(), expected) == 0;
      if (right) {
        result.frame_times.push_back(time);
      } else {
        ++result.wrong_values;
      }
    }
  }
  return result;
}

bool rising(const std::vector<std::uint64_t>& times) { return std::is_sorted(times.begin(), times.end()); }

class RecordSalvage : public ::testing::TestWithParam<InputKind> {};

struct DamageCase {
  const char* name;
  int from_record;  // the damage starts where this record does (-1: the end of the data)
  int to_record;    // and ends where this one starts (-1: the end of the data)
  char fill;        // 'r': bytes from a fixed pseudo-random sequence
};

std::string damaged(std::string bytes, std::uint64_t from, std::uint64_t to, char fill) {
  std::uint32_t state = 12345;
  for (std::uint64_t at = from; at < to; ++at) {
    state = state * 1103515245u + 12345u;
    // Random bytes that avoid the group ids, so the stretch ends where the test says.
    char random = static_cast<char>(0x10 + (state >> 16) % 0xE0);
    bytes[at] = fill == 'r' ? random : fill;
  }
  return bytes;
}

TEST_P(RecordSalvage, RecordsBehindAStretchAreRecoveredAndItIsReported) {
  const Records clean = Records::logger(60);
  const DamageCase cases[] = {
      {"zeros in the middle", 40, 52, '\0'},
      {"0xFF in the middle", 40, 41, '\xff'},
      {"random bytes in the middle", 70, 90, 'r'},
      {"at the very start", 0, 9, '\0'},
      {"reaching the end", 120, -1, '\xff'},
  };
  for (const DamageCase& c : cases) {
    SCOPED_TRACE(c.name);
    const std::uint64_t from = clean.starts[static_cast<std::size_t>(c.from_record)];
    const std::uint64_t to = c.to_record < 0 ? clean.bytes.size() : clean.starts[static_cast<std::size_t>(c.to_record)];
    Salvaged s = salvage(damaged(clean.bytes, from, to, c.fill), GetParam());
    ASSERT_EQ(s.report.skipped.size(), 1u);
    EXPECT_EQ(s.report.skipped[0].offset, s.data_offset + from);
    EXPECT_EQ(s.report.skipped[0].bytes, to - from);
    // The frames outside the damage read their own values, in order; none is invented.
    EXPECT_EQ(s.wrong_values, 0u);
    EXPECT_TRUE(rising(s.frame_times));
    EXPECT_TRUE(rising(s.other_times));
    auto outside = [&](std::size_t i) {
      const std::uint64_t end = i + 1 < clean.starts.size() ? clean.starts[i + 1] : clean.bytes.size();
      return end <= from || clean.starts[i] >= to;
    };
    // Frames that lie outside the damage with their values (each right before its frame).
    std::uint64_t frames_outside = 0;
    for (std::size_t i = 1; i < clean.starts.size(); ++i) {
      frames_outside += clean.bytes[clean.starts[i]] == 1 && outside(i) && outside(i - 1);
    }
    // The record right before the stretch is left out (the damage may reach into it).
    EXPECT_GE(s.frame_times.size() + 1, frames_outside);
    EXPECT_LE(s.frame_times.size(), frames_outside);
    // The loss line counts the stretch.
    EXPECT_GE(s.report.bytes(), to - from);
    const std::uint64_t behind = static_cast<std::uint64_t>(
        std::count_if(clean.starts.begin(), clean.starts.end(), [&](std::uint64_t start) { return start >= to; }));
    EXPECT_LE(s.report.skipped[0].records_after, behind);
    EXPECT_GE(s.report.skipped[0].records_after + 3, behind);
  }
}

TEST_P(RecordSalvage, EveryStretchIsSkippedAndValuesLostInOneMoveTheReferencesBehindIt) {
  const Records clean = Records::logger(90);
  std::string bytes = damaged(clean.bytes, clean.starts[30], clean.starts[45], '\0');
  bytes = damaged(bytes, clean.starts[100], clean.starts[101], '\xff');
  bytes = damaged(bytes, clean.starts[160], clean.starts[175], 'r');
  Salvaged s = salvage(bytes, GetParam());
  ASSERT_EQ(s.report.skipped.size(), 3u);
  EXPECT_EQ(s.wrong_values, 0u);
  EXPECT_TRUE(rising(s.frame_times));
  // The frames behind the last stretch are there, with their values.
  EXPECT_EQ(s.frame_times.back(), 1000u + 10 * 89);
  EXPECT_GT(s.frame_times.size(), 70u);
  // Streamed or in memory, the same decisions and the same output.
  Salvaged other = salvage(bytes, GetParam() == InputKind::kInMemory ? InputKind::kStreamed : InputKind::kInMemory);
  EXPECT_EQ(other.saved, s.saved);
}

TEST_P(RecordSalvage, AHugeLengthClaimIsDamageEvenNearTheEnd) {
  const Records clean = Records::logger(30);
  // A value's length field turned into a claim no logger writes, a few records from the end.
  std::string bytes = clean.bytes;
  const std::uint64_t at = clean.starts[clean.starts.size() - 9];
  ASSERT_EQ(bytes[at], 2);
  bytes.replace(at + 1, 4, MdfBuilder::u32(0x00FFFFFF));
  Salvaged s = salvage(bytes, GetParam());
  ASSERT_EQ(s.report.skipped.size(), 1u);
  EXPECT_EQ(s.report.skipped[0].offset, s.data_offset + at);
  EXPECT_EQ(s.report.losses[0].reason, LossReason::kRecordPastEnd);
  EXPECT_EQ(s.frame_times.back(), 1000u + 10 * 29);
  // Without salvaging it is taken for a record torn by the end, as before.
  OpenedFile plain(loggerFile(bytes), GetParam());
  LossReport report;
  finalize(plain.file.get(), &report);
  EXPECT_FALSE(report.any());
}

TEST_P(RecordSalvage, CleanRecordsGiveTheSameOutputWithAndWithoutSalvaging) {
  const std::string file = loggerFile(Records::logger(40).bytes);
  OpenedFile plain(file, GetParam());
  finalize(plain.file.get());
  Salvaged s = salvage(Records::logger(40).bytes, GetParam());
  EXPECT_FALSE(s.report.any());
  EXPECT_EQ(s.saved, test::savedBytes(plain.file.get()));
}

// Found by fuzzing: a data group without channel groups can take no record at all; its data is
// lost as without salvaging, instead of a search that never ends.
TEST_P(RecordSalvage, AGroupWithoutChannelGroupsLosesItsDataAsBefore) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0025});
  Handle data = b.data(Records::logger(5).bytes);
  b.header({.first_data_group = b.dataGroup({.data = data, .record_id_size = 1})});
  OpenedFile file(b.bytes(), GetParam());
  LossReport report;
  finalize(file.file.get(), &report, true);
  OpenedFile plain(b.bytes(), GetParam());
  LossReport before;
  finalize(plain.file.get(), &before);
  EXPECT_TRUE(report.skipped.empty());
  ASSERT_EQ(report.losses.size(), 1u);
  EXPECT_EQ(describeLosses(report), describeLosses(before));
  EXPECT_EQ(test::savedBytes(file.file.get()), test::savedBytes(plain.file.get()));
}

INSTANTIATE_TEST_SUITE_P(InMemoryAndStreamed, RecordSalvage, ::testing::Values(InputKind::kInMemory, InputKind::kStreamed));

// The search itself, on the records of the logger above.
class SalvageSearchRun : public ::testing::Test {
 protected:
  void SetUp() override {
    file_ = std::make_unique<OpenedFile>(loggerFile(""));
    search_ = std::make_unique<SalvageSearch>(*file_->group(0));
  }
  bool accepts(const std::string& bytes) {
    return search_->acceptsRun(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  static std::string other(std::uint64_t time) { return MdfBuilder::record(3, 1, MdfBuilder::u64(time) + "x"); }

  std::unique_ptr<OpenedFile> file_;
  std::unique_ptr<SalvageSearch> search_;
};

TEST_F(SalvageSearchRun, TakesARunOfCleanRecordsOrOneThatEndsWithTheData) {
  // Three ids of 256 tell 6.4 bits a record: 8 records make 48 bits.
  ASSERT_EQ(search_->runLength(), 8u);
  std::string run;
  for (int i = 0; i < 8; ++i) run += other(100 + i);
  const std::string unknown = MdfBuilder::record(9, 1, "123456789");
  const struct {
    const char* name;
    std::string bytes;
    bool accepted;
  } cases[] = {
      {"eight clean records, then anything", run + unknown, true},
      {"seven, then an unknown id", run.substr(0, 7 * 10) + unknown + run, false},
      {"three that end with the data", run.substr(0, 30), true},
      {"three and a torn one", run.substr(0, 35), true},
      {"three and the blocks behind the data",
       run.substr(0, 30) + "##DT" + std::string(4, '\0') + MdfBuilder::u64(24) + MdfBuilder::u64(0), true},
      {"a time going back in the run", other(200) + run, false},
      {"a value claiming more than a logger writes", MdfBuilder::record(2, 1, MdfBuilder::u32(1 << 20)) + "abc", false},
      {"a short value torn by the end", MdfBuilder::record(2, 1, MdfBuilder::u32(100)) + "abc", true},
      {"nothing left", "", true},
  };
  for (const auto& c : cases) EXPECT_EQ(accepts(c.bytes), c.accepted) << c.name;
}

TEST_F(SalvageSearchRun, ARunIsComparedWithTheRecordBeforeTheLastTaken) {
  std::string run;
  for (int i = 0; i < 8; ++i) run += other(150 + i);
  const std::string taken[] = {MdfBuilder::u64(100) + "x", MdfBuilder::u64(999999) + "x"};
  for (const std::string& payload : taken) {
    search_->take(3, reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size());
  }
  // The last one taken may be damage itself: its huge time shuts nothing out...
  EXPECT_TRUE(accepts(run));
  // ...but the one before it does.
  std::string early;
  for (int i = 0; i < 8; ++i) early += other(50 + i);
  EXPECT_FALSE(accepts(early));
  const std::string bytes = std::string(5, '\0') + run;
  EXPECT_EQ(search_->find(reinterpret_cast<const std::uint8_t*>(bytes.data()), 0, bytes.size(), bytes.size()), 5u);
}

TEST(MasterKey, OrdersLikeTheValues) {
  MasterValue unsigned_master{0, 64, false, true};
  MasterValue float_master{0, 64, true, true};
  std::vector<std::uint64_t> keys;
  for (double value : {-1e300, -2.5, -0.0, 0.0, 1.5, 1e300}) {
    std::string bytes = MdfBuilder::f64(value);
    keys.push_back(*masterKey(float_master, reinterpret_cast<const std::uint8_t*>(bytes.data()), 8));
  }
  EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
  const std::string nan = MdfBuilder::f64(std::nan(""));
  EXPECT_FALSE(masterKey(float_master, reinterpret_cast<const std::uint8_t*>(nan.data()), 8));
  const std::string small = MdfBuilder::u64(5);
  EXPECT_EQ(masterKey(unsigned_master, reinterpret_cast<const std::uint8_t*>(small.data()), 8), 5u);
  EXPECT_FALSE(masterKey(unsigned_master, reinterpret_cast<const std::uint8_t*>(small.data()), 7));
  // Bits at any offset: 12 bits from bit 4.
  MasterValue packed{4, 12, false, true};
  const std::string bits = MdfBuilder::u16(0xABC0);
  EXPECT_EQ(masterKey(packed, reinterpret_cast<const std::uint8_t*>(bits.data()), 2), 0xABCu);
}

}  // namespace
}  // namespace qm
