// Property: a sorted and saved file, read back by the program's own loader, holds for every
// channel group exactly the records the input held for it, in their order.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "tests/support/opened_file.h"
#include "tests/support/mdf_builder.h"

namespace qm {
namespace {

using test::MdfBuilder;

struct Generated {
  std::string bytes;
  std::map<std::uint64_t, std::string> records;  // record id -> its payloads in order
  std::map<std::uint64_t, std::uint64_t> counts;
  std::string signal_data;  // values of the VLSD group behind the first group, if any
};

// Random record id size, group sizes and interleaving; an already sorted data group in front;
// the unsorted data block last in the file with its length left for the open to fix.
Generated generate(std::uint32_t seed) {
  std::mt19937 random(seed);
  auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
  const int id_bytes = 1 << pick(0, 3), group_count = pick(1, 5);
  const bool with_vlsd = pick(0, 1) == 1;
  const std::uint64_t vlsd_id = 200;
  MdfBuilder b;
  b.id({.standard_flags = 0x0025});
  Generated out;
  std::vector<MdfBuilder::Handle> groups;
  std::vector<std::pair<std::uint64_t, std::uint32_t>> fixed;  // record id, data bytes
  for (int i = 0; i < group_count; ++i) {
    std::uint64_t id = static_cast<std::uint64_t>(i * 37 + 1);
    std::uint32_t data_bytes = static_cast<std::uint32_t>(pick(1, 12));
    MdfBuilder::Handle values = with_vlsd && i == 0 ? b.channelGroup({.record_id = vlsd_id, .flags = kChannelGroupVlsd}) : 0;
    MdfBuilder::Handle channel =
        values ? b.channel({.name = b.text("frame"), .data = values, .channel_type = 1, .data_type = 10, .bit_count = 64}) : 0;
    groups.push_back(b.channelGroup({.first_channel = channel, .record_id = id, .data_bytes = data_bytes}));
    if (values) groups.push_back(values);
    fixed.emplace_back(id, data_bytes);
    out.records[id], out.counts[id] = 0;
  }
  b.chain(groups);
  std::string records;
  for (int n = pick(0, 400); n > 0; --n) {
    std::string value(static_cast<std::size_t>(pick(0, 40)), '\0');
    for (char& c : value) c = static_cast<char>(pick(0, 255));
    if (with_vlsd && pick(0, 3) == 0) {
      records += MdfBuilder::vlsdRecord(vlsd_id, id_bytes, value);
      out.signal_data += MdfBuilder::u32(static_cast<std::uint32_t>(value.size())) + value;
      continue;
    }
    auto [id, data_bytes] = fixed[static_cast<std::size_t>(pick(0, group_count - 1))];
    value.resize(data_bytes, 'x');
    records += MdfBuilder::record(id, id_bytes, value);
    out.records[id] += value;
    ++out.counts[id];
  }
  auto sorted = b.dataGroup({.first_channel_group = b.channelGroup({.record_id = 0xFFFF, .cycle_count = 3, .data_bytes = 1}),
                             .data = b.data("xyz")});
  auto unsorted = b.dataGroup({.first_channel_group = groups.front(), .record_id_size = static_cast<std::uint8_t>(id_bytes)});
  b.chain({sorted, unsorted});
  b.header({.first_data_group = sorted});
  auto dt = b.data("");
  b.place(dt, 1 << 20);
  b.setLink(unsorted, 2, dt);
  out.bytes = b.bytes() + records;
  out.records[0xFFFF] = "xyz", out.counts[0xFFFF] = 3;
  return out;
}

TEST(RoundTrip, SortedOutputHoldsEveryGroupsRecordsInOrder) {
  for (std::uint32_t seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Generated expected = generate(seed);
    test::OpenedFile input(expected.bytes);
    finalize(input.file.get());
    test::OpenedFile output(test::savedBytes(input.file.get()));
    ASSERT_TRUE(output.file);
    EXPECT_EQ(output.file->id()->standard_flags, 0);
    Generated actual;
    for (std::size_t i = 0; i < output.groupCount(); ++i) {
      ASSERT_EQ(output.group(i)->channel_groups.size(), 1u);
      ChannelGroupBlock* group = test::channelGroup(output.group(i));
      ASSERT_EQ(actual.records.count(group->record_id), 0u);
      std::string& records = actual.records[group->record_id];
      for (const std::string& record : test::recordsOf(*output.group(i))) records += record;
      actual.counts[group->record_id] = group->cycle_count;
      for (const BlockRef& channel : group->channels) actual.signal_data += test::payloadOf(blockAs<ChannelBlock>(channel)->data);
    }
    EXPECT_EQ(actual.records, expected.records);
    EXPECT_EQ(actual.counts, expected.counts);
    EXPECT_EQ(actual.signal_data, expected.signal_data);
  }
}

// Records read in place and noted, or read piece by piece and copied: the same output, also
// when the data ends inside a record or a length prefix, or a changed byte makes an id unknown
// or a length wrong.
TEST(RoundTrip, InputHeldInMemoryAndStreamedInputGiveTheSameOutput) {
  for (std::uint32_t seed = 1; seed <= 40; ++seed) {
    Generated generated = generate(seed);
    std::mt19937 random(seed);
    std::size_t header_end = generated.bytes.size() - 1;
    while (header_end > 0 && generated.bytes.compare(header_end, 4, "##DT") != 0) --header_end;
    for (int variant = 0; variant < 8; ++variant) {
      std::string bytes = generated.bytes;
      if (variant > 0 && bytes.size() > header_end + 24) {
        std::size_t at = header_end + 24 + random() % (bytes.size() - header_end - 24);
        if (variant < 4) {
          bytes.resize(at);
        } else {
          bytes[at] = static_cast<char>(random());
        }
      }
      SCOPED_TRACE("seed " + std::to_string(seed) + ", size " + std::to_string(bytes.size()));
      test::OpenedFile in_memory(bytes, test::InputKind::kInMemory);
      test::OpenedFile streamed(bytes, test::InputKind::kStreamed);
      ASSERT_TRUE(in_memory.file && streamed.file);
      finalize(in_memory.file.get());
      finalize(streamed.file.get());
      EXPECT_EQ(test::savedBytes(in_memory.file.get()), test::savedBytes(streamed.file.get()));
    }
  }
}

}  // namespace
}  // namespace qm
