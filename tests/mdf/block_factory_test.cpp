#include "mdf/block_factory.h"

#include <gtest/gtest.h>

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
  hangInOneGroup(b, b.channel({.name = name, .unit = name}));
  auto opened = openBytes(b.bytes());
  ASSERT_TRUE(opened.file);
  ChannelBlock* channel = firstChannel(*opened.file);
  ASSERT_TRUE(channel);
  EXPECT_EQ(channel->name, channel->unit);
  EXPECT_EQ(textOf(channel->name), "n");
  EXPECT_FALSE(channel->source);
  EXPECT_FALSE(blockAs<DataGroupBlock>(opened.file->dataGroups()->front())->data);

  LoadContext ctx(nullptr);
  EXPECT_FALSE(loadSingle(ctx, nullptr, kNoBlock));
}

// Cycles at every level of the tree are refused in the robustness tests (CyclicLinks); here the
// one line a refusal logs.
TEST(BlockFactory, ACycleFailsTheLoadWithOneLine) {
  LogCapture log;
  B b;
  auto cc = b.conversion({});
  b.setLink(cc, 3, cc);  // its own inverse
  hangInOneGroup(b, b.channel({.conversion = cc}));
  EXPECT_FALSE(openBytes(b.bytes()).file);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Could not parse block at offset " + std::to_string(b.offsetOf(cc))});
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
  hangInOneGroup(b, channels.front());
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
  hangInOneGroup(b, inner);
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
  hangInOneGroup(b, cn);
  std::string whole = b.bytes();
  ASSERT_EQ(whole.size(), 4096u + 160);
  auto opened = openBytes(whole);
  ASSERT_TRUE(opened.file);
  ChannelBlock* channel = firstChannel(*opened.file);
  EXPECT_EQ(channel->header.length, 152u);
  EXPECT_EQ(channel->extended_limit_max, 4.0);
  // Cut at the declared end: the length fits, but the last field cannot be read.
  EXPECT_FALSE(openBytes(whole.substr(0, 4096 + 152)).file);
}

// Lengths and counts beyond the file are refused in the robustness tests (OversizedFields); here
// two faults of a fixed-size block.
TEST(BlockFactory, FixedSizeBlocksRunningPastTheEndOrWithOtherLinkCountsFail) {
  B b;
  auto cn = b.channel({});  // the last block of the file
  b.setLength(cn, 168);
  b.place(cn, 4096);
  hangInOneGroup(b, cn);
  EXPECT_FALSE(openBytes(b.bytes()).file);
  B links;
  hangInOneGroup(links, links.block("CN", {0, 0, 0, 0, 0, 0, 0}, std::string(80, '\0')));
  EXPECT_FALSE(openBytes(links.bytes()).file);
}

}  // namespace
}  // namespace qm::test
