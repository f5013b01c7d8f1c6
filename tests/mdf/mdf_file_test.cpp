#include "mdf/mdf_file.h"

#include <gtest/gtest.h>

#include "mdf/file_history_block.h"
#include "mdf/header_block.h"
#include "mdf/id_block.h"
#include "mdf/load_hooks.h"
#include "mdf/save_context.h"
#include "mdf/source_block.h"
#include "tests/mdf/mdf_test_util.h"
#include "tests/support/log_capture.h"

namespace qm::test {
namespace {

using B = MdfBuilder;

// One data group with one channel group, one named channel and a data block.
B::Handle simpleDataGroup(B& b, std::string_view name, std::string_view payload) {
  auto cn = b.channel({.name = b.text(name), .bit_count = 8});
  auto cg = b.channelGroup({.first_channel = cn, .data_bytes = 1});
  return b.dataGroup({.first_channel_group = cg, .data = b.data(payload)});
}

TEST(MdfFileSave, PlacesBlocksDepthFirstAndReversesChains) {
  B b;
  auto a = simpleDataGroup(b, "a", "1");
  auto bb = simpleDataGroup(b, "b", "22");
  auto c = simpleDataGroup(b, "c", "333");
  b.chain({a, bb, c});
  auto fh1 = b.fileHistory({.comment = b.metadata("<FHcomment/>"), .time = 1});
  auto fh2 = b.fileHistory({.time = 2});
  b.chain({fh1, fh2});
  b.header({.first_data_group = a, .first_file_history = fh1, .comment = b.text("hd")});
  std::string out = resaved(b);
  ASSERT_FALSE(out.empty());

  // A, the first of the list, is placed right behind the header; its children follow it.
  const std::uint64_t pos_a = 168;
  EXPECT_EQ(out.substr(pos_a, 4), "##DG");
  std::uint64_t cg_a = linkAt(out, pos_a, 1);
  EXPECT_EQ(cg_a, pos_a + 64);
  std::uint64_t cn_a = linkAt(out, cg_a, 1);
  EXPECT_EQ(cn_a, cg_a + 104);
  std::uint64_t tx_a = linkAt(out, cn_a, 2);
  EXPECT_EQ(tx_a, cn_a + 160);
  EXPECT_EQ(readU64At(out, tx_a + 8), 26u);  // "a" and its terminator
  EXPECT_EQ(linkAt(out, pos_a, 2), tx_a + 32);  // rounded up behind the 26-byte text
  EXPECT_EQ(readU64At(out, linkAt(out, pos_a, 2) + 8), 25u);

  // The chain runs from the last list member back to the first.
  std::uint64_t pos_c = linkAt(out, 64, 0);
  std::uint64_t pos_b = linkAt(out, pos_c, 0);
  EXPECT_EQ(linkAt(out, pos_b, 0), pos_a);
  EXPECT_EQ(linkAt(out, pos_a, 0), 0u);
  EXPECT_LT(pos_a, pos_b);
  EXPECT_LT(pos_b, pos_c);
  std::uint64_t first_fh = linkAt(out, 64, 1);
  EXPECT_EQ(readU64At(out, first_fh + 40), 2u);
  EXPECT_EQ(readU64At(out, linkAt(out, first_fh, 0) + 40), 1u);
  EXPECT_EQ(linkAt(out, linkAt(out, first_fh, 0), 0), 0u);
  EXPECT_GT(linkAt(out, 64, 5), first_fh);  // the comment comes after both lists
}

TEST(MdfFileSave, GapsAndReservedFieldsAreNeverWritten) {
  B b;
  auto dt = b.data("0123456789abc");  // 13 bytes: length 37
  auto cg = b.channelGroup({.record_id = 7, .data_bytes = 13});
  auto dg = b.dataGroup({.first_channel_group = cg, .data = dt, .comment = b.textBytes("hello")});
  b.header({.first_data_group = dg});
  std::string out = resaved(b, std::string(1024, '\xff'));
  ASSERT_FALSE(out.empty());

  EXPECT_EQ(out.substr(24, 4), std::string(4, '\xff'));  // reserved in the identification block
  const std::size_t dg_pos = 168, cg_pos = 232, dt_pos = 336;
  EXPECT_EQ(linkAt(out, dg_pos, 2), dt_pos);
  EXPECT_EQ(readU64At(out, dt_pos + 8), 37u);
  EXPECT_EQ(out.substr(dt_pos + 37, 3), std::string(3, '\xff'));  // padding to 376
  const std::size_t tx_pos = dt_pos + 40;
  EXPECT_EQ(linkAt(out, dg_pos, 3), tx_pos);
  EXPECT_EQ(readU64At(out, tx_pos + 8), 29u);
  EXPECT_EQ(out.substr(tx_pos + 29, 3), std::string(3, '\xff'));
  EXPECT_EQ(out.substr(cg_pos + 4, 4), std::string(4, '\0'));  // header reserved bytes are zeros
  EXPECT_EQ(out.substr(cg_pos + 92, 4), std::string(4, '\xff'));  // skipped before data bytes
  EXPECT_EQ(readU32At(out, cg_pos + 96), 13u);
  EXPECT_EQ(out.substr(dg_pos + 57, 7), std::string(7, '\0'));  // the data group writes its zeros
  EXPECT_EQ(out.substr(dt_pos + 24, 13), "0123456789abc");
}

TEST(MdfFileSave, BlockLinkedManyTimesIsWrittenOnce) {
  B b;
  auto name = b.text("shared");
  auto cn1 = b.channel({.name = name});
  auto cn2 = b.channel({.name = name, .unit = name});
  b.chain({cn1, cn2});
  auto cg = b.channelGroup({.first_channel = cn1, .acquisition_name = name, .comment = name});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = cg, .comment = name})});
  std::string out = resaved(b);
  ASSERT_FALSE(out.empty());
  std::uint64_t first = linkAt(out, 232, 1);
  std::uint64_t second = linkAt(out, first, 0);
  EXPECT_EQ(linkAt(out, first, 2), linkAt(out, second, 2));
  EXPECT_EQ(linkAt(out, first, 2), linkAt(out, first, 6));
  EXPECT_EQ(linkAt(out, first, 2), linkAt(out, 232, 2));
  EXPECT_EQ(out.find("##TX"), out.rfind("##TX"));
}

TEST(MdfFileSave, ChecksPlacementRules) {
  B b;
  auto long_channel = b.block("CN", std::vector<B::Handle>(8, B::kNone), std::string(80, '\0'));
  b.setLength(long_channel, 168);  // a channel with 8 bytes more than its fields
  b.place(long_channel, 1000);
  hangInOneGroup(b, long_channel);
  std::string input = b.bytes();
  input.resize(1168, '\0');
  auto opened = openBytes(input);
  ASSERT_TRUE(opened.file);
  {
    LogCapture log;
    ASSERT_FALSE(saveToBytes(*opened.file).empty());
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Error during save. Expected to be at 504 but stream is at 496"});
  }
  // The identification block only goes at 0; the header block only at 64.
  ByteStream output;
  SaveContext ctx{&output};
  ctx.position = 8;
  EXPECT_EQ(saveBlock(opened.file->id(), ctx, nullptr), 0);
  ctx.position = 0;
  auto* header = opened.file->header();
  EXPECT_EQ(saveBlock(header, ctx, nullptr), 0);
  EXPECT_TRUE(output.bytes.empty());
}

// Fixed-size blocks that declare 8 bytes less than their fields take. They load, their fields
// being read at their offsets, and are saved with the declared length: the next block is placed
// by it, so the block's last 8 bytes and the next block's first 8 share a place in the output,
// and whichever is written later wins. The expected outputs are built with each block where
// the writer puts it; the builder writes blocks in creation order.

TEST(MdfFileShortBlocks, ChannelIsWrittenOverTheStartOfItsFirstChild) {
  B b;
  auto cn = b.channel({.name = b.text("n"), .bit_count = 8, .extended_limit_max = 2.5});
  b.setLength(cn, 152);
  hangInOneGroup(b, cn, false);
  auto opened = openBytes(b.bytes());
  ASSERT_TRUE(opened.file);
  EXPECT_EQ(firstChannel(*opened.file)->extended_limit_max, 2.5);  // read behind the declared length
  LogCapture log;
  std::string out = saveToBytes(*opened.file);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Error during save. Expected to be at 488 but stream is at 496"});

  // The name is placed at 336 + 152 and written before its channel, whose last field then
  // covers the name's id and reserved bytes.
  B e;
  auto e_cn = e.channel({.bit_count = 8, .extended_limit_max = 2.5});
  e.setLength(e_cn, 152);
  auto e_name = e.text("n");
  e.setLink(e_cn, 2, e_name);
  e.place(e_name, 488);
  hangInOneGroup(e, e_cn, true);
  std::string expected = e.bytes();
  expected.replace(488, 8, B::f64(2.5));
  EXPECT_EQ(out, expected);
  EXPECT_EQ(readU64At(out, 336 + 8), 152u);
  EXPECT_EQ(linkAt(out, 336, 2), 488u);
  EXPECT_EQ(readU64At(out, 496), 26u);  // the name's length survives
}

TEST(MdfFileShortBlocks, SourceFieldsAreWrittenOverTheStartOfItsName) {
  B b;
  auto si = b.source({.name = b.text("bus"), .source_type = 2, .bus_type = 2, .flags = 1});
  b.setLength(si, 48);
  hangInOneGroup(b, b.channel({.source = si, .bit_count = 8}), false);
  auto opened = openBytes(b.bytes());
  ASSERT_TRUE(opened.file);
  auto* source = blockAs<SourceBlock>(firstChannel(*opened.file)->source);
  ASSERT_TRUE(source);
  EXPECT_EQ(source->bus_class, kBusCan);  // the fields lie wholly behind the declared length
  EXPECT_EQ(source->flags, 1);
  LogCapture log;
  std::string out = saveToBytes(*opened.file);
  EXPECT_TRUE(log.lines().empty());

  // Channel at 336, its source at 496 and the source's name at 496 + 48. The three field bytes
  // land on the name's "##T"; the reserved bytes behind them are skipped, so its "X" stays.
  B e;
  auto e_si = e.source({.source_type = 2, .bus_type = 2, .flags = 1});
  e.setLength(e_si, 48);
  auto e_name = e.text("bus");
  e.setLink(e_si, 0, e_name);
  e.place(e_si, 496);
  e.place(e_name, 544);
  hangInOneGroup(e, e.channel({.source = e_si, .bit_count = 8}), true);
  std::string expected = e.bytes();
  expected.replace(544, 3, "\x02\x02\x01");
  EXPECT_EQ(out, expected);
  EXPECT_EQ(out.substr(544, 8), std::string("\x02\x02\x01X\0\0\0\0", 8));
}

TEST(MdfFileShortBlocks, FileHistoryFieldsAreCoveredByTheBlockSavedAfterIt) {
  B b;
  auto fh = b.fileHistory({.time = 7, .time_zone_offset = 60, .daylight_saving_offset = -30, .time_flags = 3});
  b.setLength(fh, 48);
  b.header({.first_file_history = fh, .comment = b.text("hd")});
  auto opened = openBytes(b.bytes());
  ASSERT_TRUE(opened.file);
  auto* history = blockAs<FileHistoryBlock>(opened.file->header()->file_history.front());
  ASSERT_TRUE(history);
  EXPECT_EQ(history->time_zone_offset, 60);
  EXPECT_EQ(history->daylight_saving_offset, -30);
  EXPECT_EQ(history->time_flags, 3);
  LogCapture log;
  std::string out = saveToBytes(*opened.file);
  EXPECT_TRUE(log.lines().empty());

  // The history at 168 keeps its time at 208; the header's comment, saved after the history
  // list and placed at 168 + 48, is written over the offsets and flags.
  B e;
  auto e_fh = e.fileHistory({.time = 7, .time_zone_offset = 60, .daylight_saving_offset = -30, .time_flags = 3});
  e.setLength(e_fh, 48);
  auto e_comment = e.text("hd");
  e.header({.first_file_history = e_fh, .comment = e_comment});
  e.place(e_fh, 168);
  e.place(e_comment, 216);
  EXPECT_EQ(out, e.bytes());
  EXPECT_EQ(readU64At(out, 168 + 8), 48u);
  EXPECT_EQ(readU64At(out, 208), 7u);
  EXPECT_EQ(out.substr(216, 4), "##TX");
}

TEST(MdfFileOpen, RefusesUnknownFileIds) {
  LogCapture log;
  for (const char* id : {"MDF\0\0\0\0\0", "MDF4    ", "##HD    "}) {
    B b;
    b.id({.file_id = std::string(id, 8)});
    b.header({});
    EXPECT_FALSE(openBytes(b.bytes()).file) << id;
  }
  EXPECT_FALSE(MdfFile::open(nullptr));
  EXPECT_FALSE(openBytes("MDF     ").file);  // no header block behind the id
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"Unable to load block header for type MDF",
                                                   "Unable to load block header for type MDF4    "}));
}

TEST(MdfFileOpen, SaysWhyItRefused) {
  LogCapture log;
  B b;
  b.id({});
  b.header({});
  struct Case {
    std::string bytes;
    FailureReason reason;
  };
  for (const Case& c : {Case{"", FailureReason::kEmptyFile}, Case{"hello, no measurement", FailureReason::kNotMdf},
                        Case{b.bytes().substr(0, 80), FailureReason::kMdfUnreadable}}) {
    auto stream = memoryStreamOf(c.bytes);
    Failure why;
    EXPECT_FALSE(MdfFile::open(stream.get(), nullptr, &why));
    EXPECT_EQ(why.reason, c.reason) << c.bytes.size();
  }
}

class CountingHooks : public LoadHooks {
 public:
  void dataGroupLoaded(DataGroupBlock& dg) override {
    data_groups.push_back(dg.record_id_size);
    channel_groups_seen += dg.channel_groups.size();
  }
  void channelGroupLoaded(ChannelGroupBlock& cg) override { channels_seen += cg.channels.size(); }
  void fileOpened(MdfFile& file) override { opened_with_id = file.id() != nullptr; }

  std::vector<int> data_groups;  // record id sizes, in hook order
  std::size_t channel_groups_seen = 0;
  std::size_t channels_seen = 0;
  bool opened_with_id = false;
};

TEST(MdfFileOpen, HeaderRefusesHierarchyAttachmentAndEventAfterItsDataGroups) {
  for (int link = 2; link <= 4; ++link) {
    B b;
    auto dg = simpleDataGroup(b, "x", "1");
    auto hd = b.header({.first_data_group = dg});
    b.setLink(hd, static_cast<std::size_t>(link), b.raw("##AT"));
    LogCapture log;
    CountingHooks hooks;
    EXPECT_FALSE(openBytes(b.bytes(), &hooks).file);
    EXPECT_EQ(hooks.data_groups.size(), 1u) << link;
    EXPECT_FALSE(hooks.opened_with_id);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Unsupported parameter present in file"});
  }
}

TEST(MdfFileOpen, SampleReductionIsRefusedAfterTheChannels) {
  for (bool bad_channel : {false, true}) {
    B b;
    auto cn = b.channel({.name = bad_channel ? b.raw(std::string("##XY\0\0\0\0", 8) + B::u64(24) + B::u64(0))
                                             : b.text("ok")});
    auto cg = b.channelGroup({.first_channel = cn, .sample_reduction = b.raw("##SR")});
    b.header({.first_data_group = b.dataGroup({.first_channel_group = cg})});
    LogCapture log;
    EXPECT_FALSE(openBytes(b.bytes()).file);
    std::string expected = bad_channel ? "Unable to load block header for type ##XY" : "Unsupported parameter present in file";
    EXPECT_EQ(log.lines(), std::vector<std::string>{expected});
  }
}

TEST(MdfFileOpen, DataListIsNotAKnownBlock) {
  B b;
  auto dl = b.block("DL", {}, std::string(16, '\0'));
  b.header({.first_data_group = b.dataGroup({.data = dl})});
  LogCapture log;
  EXPECT_FALSE(openBytes(b.bytes()).file);
  EXPECT_TRUE(log.contains("Unable to load block header for type ##DL"));
}

TEST(MdfFileOpen, HooksSeeLoadedChildren) {
  B b;
  auto cn1 = b.channel({});
  auto cn2 = b.channel({});
  b.chain({cn1, cn2});
  auto cg1 = b.channelGroup({.first_channel = cn1, .record_id = 1});
  auto cg2 = b.channelGroup({.record_id = 2});
  b.chain({cg1, cg2});
  auto dg1 = b.dataGroup({.first_channel_group = cg1, .record_id_size = 1});
  auto dg2 = b.dataGroup({.record_id_size = 2});
  auto dg3 = b.dataGroup({.record_id_size = 4});
  b.chain({dg1, dg2, dg3});
  b.header({.first_data_group = dg1});
  CountingHooks hooks;
  auto opened = openBytes(b.bytes(), &hooks);
  ASSERT_TRUE(opened.file);
  // Siblings finish from the end of the chain, as a recursive load would; the list keeps chain order.
  EXPECT_EQ(hooks.data_groups, (std::vector<int>{4, 2, 1}));
  EXPECT_EQ(hooks.channel_groups_seen, 2u);
  EXPECT_EQ(hooks.channels_seen, 2u);
  EXPECT_TRUE(hooks.opened_with_id);
  BlockList* dgs = opened.file->dataGroups();
  ASSERT_EQ(dgs->size(), 3u);
  EXPECT_EQ(blockAs<DataGroupBlock>(dgs->at(0))->record_id_size, 1);
  EXPECT_EQ(blockAs<DataGroupBlock>(dgs->at(2))->record_id_size, 4);
}

}  // namespace
}  // namespace qm::test
