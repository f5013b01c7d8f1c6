#include "mdf/block_factory.h"

#include <gtest/gtest.h>

#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/header_block.h"
#include "mdf/id_block.h"
#include "mdf/text_block.h"
#include "tests/mdf/mdf_test_util.h"
#include "tests/support/log_capture.h"

namespace qm::test {
namespace {

using B = MdfBuilder;

TEST(BlockHeader, RecognisesIdsAndRewindsForTheIdentificationBlock) {
  auto stream = memoryStreamOf(std::string("##XY") + std::string(4, '\0') + B::u64(24) + B::u64(0));
  {
    LogCapture log;
    EXPECT_FALSE(readBlockHeader(stream.get()));
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Unable to load block header for type ##XY"});
  }
  stream = memoryStreamOf("UnFinMF " + std::string(56, '\0'));
  std::optional<BlockHeader> id = readBlockHeader(stream.get());
  ASSERT_TRUE(id);
  EXPECT_EQ(id->type, BlockType::kId);
  EXPECT_EQ(id->length, 64u);
  EXPECT_EQ(stream->tell(), 0);
  stream = memoryStreamOf("##TX");
  EXPECT_FALSE(readBlockHeader(stream.get()));  // short: silently nothing
}

TEST(BlockHeader, DataSectionSizeNeverUnderflows) {
  EXPECT_EQ(dataSectionSize(BlockHeader{BlockType::kCG, 104, 6}), 32u);
  EXPECT_EQ(dataSectionSize(BlockHeader{BlockType::kDT, 0, 0}), 0u);
  EXPECT_EQ(dataSectionSize(BlockHeader{BlockType::kDT, 40, ~std::uint64_t{0} / 4}), 0u);
}

TEST(BlockFactory, LinksToOneOffsetShareOneObjectAndZeroMeansNone) {
  B b;
  auto name = b.text("n");
  auto cn = b.channel({.name = name, .unit = name});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = b.channelGroup({.first_channel = cn})})});
  auto opened = openBytes(b.bytes());
  ASSERT_TRUE(opened.file);
  auto* dg = blockAs<DataGroupBlock>(opened.file->dataGroups()->front());
  auto* channel = blockAs<ChannelBlock>(blockAs<ChannelGroupBlock>(dg->channel_groups.front())->channels.front());
  ASSERT_TRUE(channel);
  EXPECT_EQ(channel->name, channel->unit);
  EXPECT_EQ(textOf(channel->name), "n");
  EXPECT_FALSE(channel->source);
  EXPECT_FALSE(dg->data);

  LoadContext ctx(nullptr);
  EXPECT_FALSE(loadSingle(ctx, nullptr, kNoBlock));
}

TEST(BlockFactory, CyclesFailTheLoad) {
  LogCapture log;
  {  // a data group chain that runs back into itself
    B b;
    auto a = b.dataGroup({});
    auto c = b.dataGroup({});
    b.chain({a, c, a});
    b.header({.first_data_group = a});
    EXPECT_FALSE(openBytes(b.bytes()).file);
  }
  {  // a channel whose data link points at its own channel group
    B b;
    auto cn = b.channel({});
    auto cg = b.channelGroup({.first_channel = cn});
    b.setLink(cn, 5, cg);
    b.header({.first_data_group = b.dataGroup({.first_channel_group = cg})});
    EXPECT_FALSE(openBytes(b.bytes()).file);
  }
  {  // a conversion that is its own inverse
    B b;
    auto cc = b.conversion({});
    b.setLink(cc, 3, cc);
    auto cg = b.channelGroup({.first_channel = b.channel({.conversion = cc})});
    b.header({.first_data_group = b.dataGroup({.first_channel_group = cg})});
    EXPECT_FALSE(openBytes(b.bytes()).file);
    EXPECT_EQ(log.lines().back(), "Could not parse block at offset " + std::to_string(b.offsetOf(cc)));
  }
  EXPECT_EQ(log.lines().size(), 3u);
}

TEST(BlockFactory, VlsdGroupBehindItsReferrerResolvesToOneObject) {
  B b;
  auto vlsd = b.channelGroup({.record_id = 2, .flags = 1});
  auto cn = b.channel({.data = vlsd, .channel_type = 1});
  auto cg = b.channelGroup({.first_channel = cn, .record_id = 1});
  b.chain({cg, vlsd});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = cg, .record_id_size = 1})});
  auto opened = openBytes(b.bytes());
  ASSERT_TRUE(opened.file);
  auto* dg = blockAs<DataGroupBlock>(opened.file->dataGroups()->front());
  ASSERT_EQ(dg->channel_groups.size(), 2u);
  auto* channel = blockAs<ChannelBlock>(blockAs<ChannelGroupBlock>(dg->channel_groups[0])->channels.front());
  EXPECT_EQ(channel->data, dg->channel_groups[1]);
}

std::string chainOfChannels(std::size_t count) {
  B b;
  std::vector<B::Handle> channels;
  channels.reserve(count);
  for (std::size_t i = 0; i < count; ++i) channels.push_back(b.channel({.byte_offset = static_cast<std::uint32_t>(i)}));
  b.chain(channels);
  auto cg = b.channelGroup({.first_channel = channels.front()});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = cg})});
  return b.bytes();
}

TEST(BlockFactory, LongSiblingChainLoadsSavesAndFrees) {
  constexpr std::size_t kCount = 100000;
  auto opened = openBytes(chainOfChannels(kCount));
  ASSERT_TRUE(opened.file);
  auto* dg = blockAs<DataGroupBlock>(opened.file->dataGroups()->front());
  BlockList& channels = blockAs<ChannelGroupBlock>(dg->channel_groups.front())->channels;
  ASSERT_EQ(channels.size(), kCount);
  EXPECT_EQ(blockAs<ChannelBlock>(channels.front())->byte_offset, 0u);
  EXPECT_EQ(blockAs<ChannelBlock>(channels.back())->byte_offset, kCount - 1);
  std::weak_ptr<Block> last = channels.back();
  std::string out = saveToBytes(*opened.file);
  EXPECT_EQ(readU32At(out, linkAt(out, 232, 1) + 92), kCount - 1);  // reversed: the last comes first
  opened.file.reset();
  EXPECT_TRUE(last.expired());
}

std::string nestedComposition(int depth) {
  B b;
  B::Handle inner = b.channel({});
  for (int i = 1; i < depth; ++i) inner = b.channel({.composition = inner});
  auto cg = b.channelGroup({.first_channel = inner});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = cg})});
  return b.bytes();
}

TEST(BlockFactory, NestingBeyondTheLimitFails) {
  LogCapture log;
  EXPECT_TRUE(openBytes(nestedComposition(20)).file);
  EXPECT_FALSE(openBytes(nestedComposition(LoadContext::kMaxNestingDepth + 10)).file);
  EXPECT_EQ(log.lines().size(), 1u);
}

// A fixed-size block shorter than its fields loads as long as the stream holds the fields.
TEST(BlockFactory, ShortFixedSizeBlockLoadsOnlyWhileItsFieldsLieInTheStream) {
  B b;
  auto cn = b.channel({.extended_limit_max = 4.0});
  b.setLength(cn, 152);
  b.place(cn, 4096);
  auto cg = b.channelGroup({.first_channel = cn});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = cg})});
  std::string whole = b.bytes();
  ASSERT_EQ(whole.size(), 4096u + 160);
  auto opened = openBytes(whole);
  ASSERT_TRUE(opened.file);
  auto* dg = blockAs<DataGroupBlock>(opened.file->dataGroups()->front());
  auto* channel = blockAs<ChannelBlock>(blockAs<ChannelGroupBlock>(dg->channel_groups.front())->channels.front());
  EXPECT_EQ(channel->header.length, 152u);
  EXPECT_EQ(channel->extended_limit_max, 4.0);
  // Cut at the declared end: the length fits, but the last field cannot be read.
  EXPECT_FALSE(openBytes(whole.substr(0, 4096 + 152)).file);
}

TEST(BlockFactory, HostileLengthsAndCountsFailBeforeAllocating) {
  auto fileWith = [](auto addBadBlock) {
    B b;
    auto cg = b.channelGroup({.first_channel = addBadBlock(b)});
    b.header({.first_data_group = b.dataGroup({.first_channel_group = cg})});
    return b.bytes();
  };
  // A text claiming far more bytes than the file holds.
  EXPECT_FALSE(openBytes(fileWith([](B& b) {
                 auto tx = b.text("abc");
                 b.setLength(tx, std::uint64_t{1} << 62);
                 return b.channel({.name = tx});
               })).file);
  // A text shorter than its own header.
  EXPECT_FALSE(openBytes(fileWith([](B& b) {
                 auto tx = b.text("abc");
                 b.setLength(tx, 8);
                 return b.channel({.name = tx});
               })).file);
  // A conversion whose values would run past the end of the stream.
  EXPECT_FALSE(openBytes(fileWith([](B& b) {
                 return b.channel({.conversion = b.conversion({.values = {1.0}, .value_count = 65535})});
               })).file);
  // A channel, the last block of the file, whose declared length runs past the end.
  EXPECT_FALSE(openBytes(fileWith([](B& b) {
                 auto cn = b.channel({});
                 b.setLength(cn, 168);
                 b.place(cn, 4096);
                 return cn;
               })).file);
  // A channel with the wrong number of links.
  EXPECT_FALSE(openBytes(fileWith([](B& b) { return b.block("CN", {0, 0, 0, 0, 0, 0, 0}, std::string(80, '\0')); }))
                   .file);
}

}  // namespace
}  // namespace qm::test
