// Link graphs a logger never writes but a damaged or hostile file may hold: very long chains,
// very deep nesting, and links that lead back to a block still being loaded.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tests/robustness/memory_conversion.h"
#include "tests/support/log_capture.h"
#include "tests/support/mdf_builder.h"

namespace qm::test {
namespace {

constexpr int kLongChain = 100000;

// A file whose header links to `first_data_group`. Its data blocks are not last in the file, so
// the flags leave their lengths as written.
std::string withHeader(MdfBuilder& b, MdfBuilder::Handle first_data_group) {
  b.id({.standard_flags = 0x0021});
  b.header({.first_data_group = first_data_group});
  return b.bytes();
}

TEST(LongChains, HundredThousandDataGroupsConvertWithoutRecursion) {
  MdfBuilder b;
  std::vector<MdfBuilder::Handle> groups;
  groups.reserve(kLongChain);
  for (int i = 0; i < kLongChain; ++i) {
    groups.push_back(b.dataGroup({.first_channel_group = b.channelGroup({.cycle_count = 1, .data_bytes = 1})}));
  }
  b.chain(groups);
  MemoryConversion result = convertInMemory(withHeader(b, groups.front()));
  ASSERT_TRUE(result.opened);
  ASSERT_TRUE(result.saved);
  std::optional<FinalizedContent> content = readFinalized(result.output);
  ASSERT_TRUE(content);
  EXPECT_EQ(content->standard_flags, 0);
}

TEST(LongChains, HundredThousandChannelGroupsSplitIntoAsManyDataGroups) {
  MdfBuilder b;
  std::vector<MdfBuilder::Handle> groups;
  groups.reserve(kLongChain);
  std::string records;
  for (int i = 0; i < kLongChain; ++i) {
    groups.push_back(b.channelGroup({.record_id = static_cast<std::uint64_t>(i), .data_bytes = 1}));
  }
  b.chain(groups);
  // A few records, the last one for the last group in the chain.
  for (std::uint64_t id : {0ull, 7ull, 0ull, 99999ull}) records += MdfBuilder::record(id, 4, "r");
  auto group = b.dataGroup({.first_channel_group = groups.front(), .data = b.data(records), .record_id_size = 4});
  MemoryConversion result = convertInMemory(withHeader(b, group));
  ASSERT_TRUE(result.opened && result.saved);
  std::optional<FinalizedContent> content = readFinalized(result.output);
  ASSERT_TRUE(content);
  EXPECT_EQ(content->records.size(), static_cast<std::size_t>(kLongChain));
  EXPECT_EQ(content->records[0], "rr");
  EXPECT_EQ(content->records[99999], "r");
}

TEST(LongChains, HundredThousandChannelsInOneGroup) {
  MdfBuilder b;
  std::vector<MdfBuilder::Handle> channels;
  channels.reserve(kLongChain);
  auto name = b.text("CAN_DataFrame.ID");  // one shared name: every channel joins one frame type
  for (int i = 0; i < kLongChain; ++i) channels.push_back(b.channel({.name = name, .bit_count = 8}));
  b.chain(channels);
  auto source = b.source({.source_type = 2, .bus_type = 2});
  auto group = b.channelGroup({.first_channel = channels.front(), .acquisition_source = source, .record_id = 5,
                               .data_bytes = 1});
  auto data_group = b.dataGroup({.first_channel_group = group, .data = b.data(MdfBuilder::record(5, 1, "x")),
                                 .record_id_size = 1});
  MemoryConversion result = convertInMemory(withHeader(b, data_group));
  ASSERT_TRUE(result.opened && result.saved);
  EXPECT_EQ(readFinalized(result.output)->records[5], "x");
}

// Inverse conversions nest one level per link: a file cannot make the loader recurse as deep as
// it likes (compositions: BlockFactory.NestingBeyondTheLimitFails).
TEST(DeepNesting, LongChainOfInverseConversionsEndsCleanly) {
  MdfBuilder b;
  MdfBuilder::Handle inverse = b.conversion({.conversion_type = 1, .values = {0.0, 1.0}});
  for (int i = 1; i < 10000; ++i) inverse = b.conversion({.inverse = inverse, .conversion_type = 1, .values = {0.0, 1.0}});
  auto channel = b.channel({.conversion = inverse, .bit_count = 8});
  auto data_group = b.dataGroup({.first_channel_group = b.channelGroup({.first_channel = channel, .data_bytes = 1}),
                                 .data = b.data("x")});
  MemoryConversion result = convertInMemory(withHeader(b, data_group));
  EXPECT_TRUE(!result.opened || result.saved);
}

// A link back to a block whose load has not finished is a cycle: the file is refused, at
// whatever level of the tree the cycle lies.
TEST(CyclicLinks, AreRefusedAtEveryLevel) {
  LogCapture quiet;
  using B = MdfBuilder;
  // A data group holding one channel group holding `channel`.
  auto holding = [](B& b, B::Handle channel) {
    return b.dataGroup({.first_channel_group = b.channelGroup({.first_channel = channel})});
  };
  const struct {
    const char* name;
    std::function<B::Handle(B&)> first_data_group;
  } cases[] = {
      {"data group next to itself", [](B& b) {
         auto group = b.dataGroup({.first_channel_group = b.channelGroup({.data_bytes = 1})});
         b.setLink(group, 0, group);
         return group;
       }},
      {"two data groups in a ring", [](B& b) {
         auto first = b.dataGroup({});
         b.setLink(first, 0, b.dataGroup({.next = first}));
         return first;
       }},
      {"channel data to its own channel group", [](B& b) {
         auto channel = b.channel({.channel_type = 1, .data_type = 10, .bit_count = 64});
         auto group = b.channelGroup({.first_channel = channel, .record_id = 1, .data_bytes = 8});
         b.setLink(channel, 5, group);
         return b.dataGroup({.first_channel_group = group, .record_id_size = 1});
       }},
      {"two channel groups in a ring", [](B& b) {
         auto first = b.channelGroup({.record_id = 1, .data_bytes = 1});
         b.setLink(first, 0, b.channelGroup({.next = first, .record_id = 2, .data_bytes = 1}));
         return b.dataGroup({.first_channel_group = first, .record_id_size = 1});
       }},
      {"channel composed of itself", [&](B& b) {
         auto channel = b.channel({.bit_count = 8});
         b.setLink(channel, 1, channel);
         return holding(b, channel);
       }},
      {"conversion its own inverse", [&](B& b) {
         auto conversion = b.conversion({.conversion_type = 1, .values = {0.0, 1.0}});
         b.setLink(conversion, 3, conversion);
         return holding(b, b.channel({.conversion = conversion, .bit_count = 8}));
       }},
      {"data group comment to the header", [](B& b) {
         auto group = b.dataGroup({});
         b.setLink(group, 3, b.offset(64));
         return group;
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    B b;
    std::string bytes = withHeader(b, c.first_data_group(b));
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(convertInMemory(bytes).opened);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  }
}

}  // namespace
}  // namespace qm::test
