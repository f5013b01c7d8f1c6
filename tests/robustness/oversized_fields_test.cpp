// Lengths, counts and offsets that point past what the file holds: each is checked before it
// sizes a buffer or bounds a loop, so the file fails to open or converts what is really there.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "mdf/channel_group_block.h"
#include "tests/robustness/memory_conversion.h"
#include "tests/support/log_capture.h"
#include "tests/support/mdf_builder.h"

namespace qm::test {
namespace {

// A block header written by hand, so that its length and link count can be anything.
std::string blockHeader(std::string_view code, std::uint64_t length, std::uint64_t link_count) {
  return "##" + std::string(code) + std::string(4, '\0') + MdfBuilder::u64(length) + MdfBuilder::u64(link_count);
}

// One data group with one channel group of 2-byte records; `tweak` damages the builder's file.
std::string smallFile(const std::function<void(MdfBuilder&, MdfBuilder::Handle group, MdfBuilder::Handle data)>& tweak) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0021});
  auto channel = b.channel({.name = b.text("Speed"), .bit_count = 16});
  auto group = b.channelGroup({.first_channel = channel, .record_id = 1, .data_bytes = 2});
  auto data = b.data(MdfBuilder::record(1, 1, "ab") + MdfBuilder::record(1, 1, "cd"));
  auto data_group = b.dataGroup({.first_channel_group = group, .data = data, .record_id_size = 1});
  b.header({.first_data_group = data_group});
  tweak(b, group, data);
  return b.bytes();
}

TEST(OversizedFields, BlockLengthsAndCountsBeyondTheFileRefuseIt) {
  LogCapture quiet;
  struct Case {
    const char* name;
    std::string bytes;
  };
  const Case cases[] = {
      {"text length of 2^62",
       smallFile([](MdfBuilder& b, auto group, auto) { b.setLink(group, 2, b.raw(blockHeader("TX", 1ull << 62, 0) + "abc")); })},
      {"text one byte longer than the file",
       smallFile([](MdfBuilder& b, auto group, auto) {
         auto text = b.textBytes("0123456789");
         b.setLength(text, 24 + 11);
         b.setLink(group, 2, text);
         b.place(text, 1 << 16);  // the last block: one byte of it is missing
       })},
      {"text length below its header",
       smallFile([](MdfBuilder& b, auto group, auto) { b.setLink(group, 2, b.raw(blockHeader("TX", 8, 0) + "abc")); })},
      {"conversion with 65535 values in a 96-byte block",
       smallFile([](MdfBuilder& b, auto group, auto) {
         auto conversion = b.conversion({.conversion_type = 1, .values = {1.0, 2.0}, .value_count = 65535});
         b.setLink(group, 1, b.channel({.conversion = conversion, .bit_count = 16}));
       })},
      {"channel group with 2^61 links",
       smallFile([](MdfBuilder& b, auto group, auto) {
         b.setLink(group, 0, b.raw(blockHeader("CG", 104, 1ull << 61) + std::string(80, '\0')));
       })},
      {"text with 2^61 links",
       smallFile([](MdfBuilder& b, auto group, auto) { b.setLink(group, 5, b.raw(blockHeader("TX", 32, 1ull << 61) + "abcdefgh")); })},
      {"link to an offset past 2^63",
       smallFile([](MdfBuilder& b, auto group, auto) { b.setLink(group, 2, b.offset((1ull << 63) + 64)); })},
      {"link to an offset past the end",
       smallFile([](MdfBuilder& b, auto group, auto) { b.setLink(group, 2, b.offset(1 << 20)); })},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_FALSE(convertInMemory(c.bytes).opened);
  }
}

TEST(OversizedFields, DataBlockWithAHugeLinkCountHoldsNoRecords) {
  std::string file = smallFile([](MdfBuilder& b, auto group, auto) {
    auto data = b.raw(blockHeader("DT", 24 + 6, 1ull << 61) + "\x01" "ab\x01" "cd");
    b.header({.first_data_group = b.dataGroup({.first_channel_group = group, .data = data, .record_id_size = 1})});
  });
  MemoryConversion result = convertInMemory(file);
  ASSERT_TRUE(result.opened && result.saved);
  EXPECT_EQ(readFinalized(result.output)->records[1], "");
}

// A VLSD length prefix past the end of the data block: the records before it are kept, the
// record and everything behind it are dropped, and nothing is allocated for the claimed size.
TEST(OversizedFields, VariableLengthPrefixBeyondTheDataBlockEndsTheScan) {
  for (std::uint32_t claimed : {0xFFFFFFFFu, 0x7FFFFFF0u, 100u}) {
    SCOPED_TRACE(claimed);
    MdfBuilder b;
    b.id({.standard_flags = 0x0025});
    auto values = b.channelGroup({.record_id = 2, .flags = kChannelGroupVlsd});
    auto bytes_channel = b.channel({.name = b.text("Bytes"), .data = values, .channel_type = 1, .data_type = 10,
                                    .bit_count = 64});
    auto frames = b.channelGroup({.next = values, .first_channel = bytes_channel, .record_id = 1, .data_bytes = 2});
    auto data_group = b.dataGroup({.first_channel_group = frames, .record_id_size = 1});
    b.header({.first_data_group = data_group});
    std::string records = MdfBuilder::record(1, 1, "ab") + MdfBuilder::vlsdRecord(2, 1, "xyz") +
                          MdfBuilder::record(1, 1, "cd") + MdfBuilder::record(2, 1, MdfBuilder::u32(claimed) + "tail") +
                          MdfBuilder::record(1, 1, "ef");
    b.setLink(data_group, 2, b.data(records));
    MemoryConversion result = convertInMemory(b.bytes());
    ASSERT_TRUE(result.opened && result.saved);
    std::optional<FinalizedContent> content = readFinalized(result.output);
    ASSERT_TRUE(content);
    EXPECT_EQ(content->records[1], "abcd");
    EXPECT_EQ(content->signal_data, MdfBuilder::u32(3) + "xyz");
  }
}

TEST(OversizedFields, RecordLongerThanTheDataBlockEndsTheScan) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0025});
  auto huge = b.channelGroup({.record_id = 2, .data_bytes = 0xFFFFFFFFu});
  auto small = b.channelGroup({.next = huge, .record_id = 1, .data_bytes = 2});
  auto data_group = b.dataGroup({.first_channel_group = small, .record_id_size = 1});
  b.header({.first_data_group = data_group});
  b.setLink(data_group, 2, b.data(MdfBuilder::record(1, 1, "ab") + MdfBuilder::record(2, 1, "xyz") + MdfBuilder::record(1, 1, "cd")));
  MemoryConversion result = convertInMemory(b.bytes());
  ASSERT_TRUE(result.opened && result.saved);
  std::optional<FinalizedContent> content = readFinalized(result.output);
  ASSERT_TRUE(content);
  EXPECT_EQ(content->records[1], "ab");
  EXPECT_EQ(content->records[2], "");
}

TEST(OversizedFields, RecordIdSizeBeyondEightBytesYieldsNoRecords) {
  std::string file = smallFile([](MdfBuilder& b, auto group, auto data) {
    auto data_group = b.dataGroup({.first_channel_group = group, .data = data, .record_id_size = 200});
    b.header({.first_data_group = data_group});
  });
  MemoryConversion result = convertInMemory(file);
  if (result.opened) {
    ASSERT_TRUE(result.saved);
    std::optional<FinalizedContent> content = readFinalized(result.output);
    ASSERT_TRUE(content);
    EXPECT_EQ(content->records[1], "");
  }
}

}  // namespace
}  // namespace qm::test
