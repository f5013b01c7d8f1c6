#include "finalize/finalize.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/support/opened_file.h"
#include "tests/support/mdf_builder.h"

namespace qm {
namespace {

using test::channelGroup;
using test::MdfBuilder;
using test::OpenedFile;
using test::payloadOf;
using Handle = MdfBuilder::Handle;

Handle fixedGroup(MdfBuilder& b, std::uint64_t id, std::uint32_t data_bytes, Handle first_channel = 0) {
  return b.channelGroup({.first_channel = first_channel, .record_id = id, .data_bytes = data_bytes});
}
Handle vlsdGroup(MdfBuilder& b, std::uint64_t id) { return b.channelGroup({.record_id = id, .flags = kChannelGroupVlsd}); }
Handle referringChannel(MdfBuilder& b, Handle values) {
  return b.channel({.name = b.text("frame"), .data = values, .channel_type = 1, .data_type = 10, .bit_count = 64});
}
std::string r1(std::uint64_t id, std::string_view payload) { return MdfBuilder::record(id, 1, payload); }

// One data group with 1-byte record ids holding the chained channel groups.
std::string unsortedFile(MdfBuilder& b, const std::vector<Handle>& groups, const std::string& records,
                         std::uint16_t flags = 0x0021) {
  b.id({.standard_flags = flags});
  b.chain(groups);
  b.header({.first_data_group = b.dataGroup({.first_channel_group = groups.front(), .data = b.data(records),
                                             .record_id_size = 1})});
  return b.bytes();
}

// Record id, cycle count and records of every data group after finalizing.
std::vector<std::tuple<std::uint64_t, std::uint64_t, std::string>> sorted(const std::string& bytes) {
  OpenedFile file(bytes);
  EXPECT_FALSE(finalize(file.file.get()));
  std::vector<std::tuple<std::uint64_t, std::uint64_t, std::string>> groups;
  for (std::size_t i = 0; i < file.groupCount(); ++i) {
    EXPECT_EQ(file.group(i)->record_id_size, 0);
    ChannelGroupBlock* cg = channelGroup(file.group(i));
    groups.emplace_back(cg->record_id, cg->cycle_count, payloadOf(file.group(i)->data));
  }
  return groups;
}
using Groups = std::vector<std::tuple<std::uint64_t, std::uint64_t, std::string>>;

TEST(Finalize, InterleavedAndTruncatedRecords) {
  MdfBuilder b;
  Handle a = fixedGroup(b, 1, 2), c = fixedGroup(b, 2, 3), d = fixedGroup(b, 3, 1);
  EXPECT_EQ(sorted(unsortedFile(b, {a, c, d}, r1(1, "A1") + r1(2, "BBB") + r1(1, "A2") + r1(3, "C"))),
            (Groups{{1, 2, "A1A2"}, {2, 1, "BBB"}, {3, 1, "C"}}));
  MdfBuilder u;
  a = fixedGroup(u, 1, 1), c = fixedGroup(u, 2, 1);
  EXPECT_EQ(sorted(unsortedFile(u, {a, c}, r1(1, "x") + r1(2, "y") + r1(9, "?") + r1(1, "z"))),
            (Groups{{1, 1, "x"}, {2, 1, "y"}}));
}

TEST(Finalize, CycleCountsOfTornRecordTakenIdAndZeroDataBytes) {
  MdfBuilder b;
  Handle first = fixedGroup(b, 1, 4), same_id = fixedGroup(b, 1, 4), empty = fixedGroup(b, 2, 0);
  // The section is not a multiple of the data bytes: the torn last record is dropped.
  std::string records = r1(1, "aaaa") + r1(2, "") + r1(1, "bbbb") + r1(1, "cc");
  EXPECT_EQ(sorted(unsortedFile(b, {first, same_id, empty}, records)),
            (Groups{{1, 2, "aaaabbbb"}, {1, 0, ""}, {2, 0, ""}}));
}

TEST(Finalize, SortedGroupStaysAndSingleGroupWithIdsIsSplit) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0001});
  Handle with_ids = b.dataGroup({.first_channel_group = fixedGroup(b, 7, 2), .data = b.data(r1(7, "pq")),
                                 .record_id_size = 1});
  Handle kept = b.dataGroup({.first_channel_group = b.channelGroup({.record_id = 5, .cycle_count = 77, .data_bytes = 1}),
                             .data = b.data("abc")});
  b.chain({with_ids, kept});
  b.header({.first_data_group = with_ids});
  OpenedFile file(b.bytes());
  DataGroupBlock* kept_group = file.group(1);
  finalize(file.file.get());
  ASSERT_EQ(file.groupCount(), 2u);
  EXPECT_EQ(file.group(0), kept_group);
  EXPECT_EQ(channelGroup(kept_group)->cycle_count, 77u);  // not recounted
  EXPECT_EQ(payloadOf(file.group(1)->data), "pq");
}

TEST(Finalize, VlsdGroupBecomesSignalDataOnlyBehindItsReferringGroup) {
  MdfBuilder b;
  Handle values = vlsdGroup(b, 2);
  Handle frames = fixedGroup(b, 1, 2, referringChannel(b, values));
  std::string records = r1(1, "f1") + MdfBuilder::vlsdRecord(2, 1, "hello") + r1(3, "o") + r1(1, "f2");
  OpenedFile file(unsortedFile(b, {frames, values, fixedGroup(b, 3, 1)}, records));
  finalize(file.file.get());
  ASSERT_EQ(file.groupCount(), 2u);
  ChannelGroupBlock* frame_group = channelGroup(file.group(0));
  auto* channel = blockAs<ChannelBlock>(frame_group->channels.front());
  EXPECT_EQ(payloadOf(channel->data), MdfBuilder::u32(5) + "hello");
  EXPECT_EQ(frame_group->channel_layouts.front().variable_data, channel->data);
  EXPECT_EQ(payloadOf(file.group(1)->data), "o");

  // Behind a group that does not refer to it, it and all behind it are dropped.
  MdfBuilder u;
  values = vlsdGroup(u, 2);
  frames = fixedGroup(u, 1, 1, referringChannel(u, values));
  records = r1(1, "a") + r1(4, "m") + MdfBuilder::vlsdRecord(2, 1, "v") + r1(3, "l");
  EXPECT_EQ(sorted(unsortedFile(u, {frames, fixedGroup(u, 4, 1), values, fixedGroup(u, 3, 1)}, records)),
            (Groups{{1, 1, "a"}, {4, 1, "m"}}));
}

TEST(Finalize, VlsdGroupFirstInItsDataGroupIsUnreferenced) {
  // The referring channel belongs to the group split off from the previous data group.
  MdfBuilder b;
  b.id({.standard_flags = 0x0001});
  Handle values = vlsdGroup(b, 2);
  b.chain({values, fixedGroup(b, 3, 1)});
  Handle first = b.dataGroup({.first_channel_group = fixedGroup(b, 1, 1, referringChannel(b, values)),
                              .data = b.data(r1(1, "a")), .record_id_size = 1});
  Handle second = b.dataGroup({.first_channel_group = values, .data = b.data(MdfBuilder::vlsdRecord(2, 1, "v") + r1(3, "b")),
                               .record_id_size = 1});
  b.chain({first, second});
  b.header({.first_data_group = first});
  EXPECT_EQ(sorted(b.bytes()), (Groups{{1, 1, "a"}}));
}

TEST(Finalize, FlagsDecideWhatIsDoneAndWhatTheOutputSays) {
  MdfBuilder b;
  Handle a = fixedGroup(b, 1, 1), c = fixedGroup(b, 2, 1);
  OpenedFile clean(unsortedFile(b, {a, c}, r1(1, "x") + r1(2, "y"), 0));
  EXPECT_TRUE(finalize(clean.file.get()));
  EXPECT_EQ(clean.group(0)->channel_groups.size(), 2u);  // untouched
  EXPECT_FALSE(finalize(nullptr));

  // The written id follows the flags left, whatever the input's id said.
  for (auto [id, standard, custom, text, kept] :
       {std::tuple<const char*, int, int, const char*, int>{"UnFinMF ", 0x0025, 0, "MDF     ", 0},
        {"UnFinMF ", 0x007F, 0, "UnFinMF ", 0x005A},
        {"MDF     ", 0x0021, 3, "UnFinMF ", 0}}) {
    MdfBuilder m;
    m.id({.file_id = id, .standard_flags = static_cast<std::uint16_t>(standard),
          .custom_flags = static_cast<std::uint16_t>(custom)});
    m.header({});
    OpenedFile file(m.bytes());
    finalize(file.file.get());
    std::string saved = test::savedBytes(file.file.get());
    ASSERT_GE(saved.size(), 64u);
    EXPECT_EQ(saved.substr(0, 24), std::string(text) + "4.10    qmtest  ");
    EXPECT_EQ(saved.substr(28, 2), MdfBuilder::u16(410));
    EXPECT_EQ(saved.substr(60, 4), MdfBuilder::u16(static_cast<std::uint16_t>(kept)) +
                                       MdfBuilder::u16(static_cast<std::uint16_t>(custom)));
  }
}

TEST(LastDataBlock, StretchedToTheFileEndFromTheGreatestPosition) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0004});
  Handle high = b.data(""), low = b.data("lo");
  b.place(low, 4096);
  b.place(high, 8192);
  Handle no_data = b.dataGroup({.first_channel_group = fixedGroup(b, 0, 1)});
  Handle g_high = b.dataGroup({.first_channel_group = fixedGroup(b, 0, 1), .data = high});
  Handle g_low = b.dataGroup({.first_channel_group = fixedGroup(b, 0, 1), .data = low});
  b.chain({no_data, g_high, g_low});
  b.header({.first_data_group = no_data});
  OpenedFile file(b.bytes() + "0123456789");  // the records the logger appended
  EXPECT_EQ(file.file->id()->standard_flags, 0);
  EXPECT_EQ(payloadOf(file.group(1)->data), "0123456789");
  EXPECT_EQ(payloadOf(file.group(2)->data), "lo");

  MdfBuilder empty;
  empty.id({.standard_flags = 0x0004});
  empty.header({});
  EXPECT_EQ(OpenedFile(empty.bytes()).file->id()->standard_flags, 0);
}

}  // namespace
}  // namespace qm
