// Field layouts and derived classifications of the block types, checked through a load and a
// save so that offsets on both sides are covered.
#include <gtest/gtest.h>

#include "mdf/conversion_block.h"
#include "mdf/file_history_block.h"
#include "mdf/header_block.h"
#include "mdf/id_block.h"
#include "mdf/source_block.h"
#include "mdf/text_block.h"
#include "tests/mdf/mdf_test_util.h"

namespace qm::test {
namespace {

using B = MdfBuilder;

struct Tree {
  OpenedFile opened;
  HeaderBlock* header = nullptr;
  DataGroupBlock* dg = nullptr;
  ChannelGroupBlock* cg = nullptr;
  ChannelBlock* cn = nullptr;
};

Tree treeOf(OpenedFile opened) {
  Tree tree{std::move(opened)};
  if (!tree.opened.file) return tree;
  tree.header = tree.opened.file->header();
  tree.dg = blockAs<DataGroupBlock>(tree.header->data_groups.front());
  tree.cg = blockAs<ChannelGroupBlock>(tree.dg->channel_groups.front());
  tree.cn = blockAs<ChannelBlock>(tree.cg->channels.front());
  return tree;
}

// A file with one data group, one channel group and one channel (each optional part given).
Tree loadTree(B& b, B::ChannelGroupSpec cg_fields, B::ChannelSpec cn_fields, B::HeaderSpec hd_fields = {}) {
  cg_fields.first_channel = b.channel(cn_fields);
  hd_fields.first_data_group = b.dataGroup({.first_channel_group = b.channelGroup(cg_fields), .record_id_size = 2});
  b.header(hd_fields);
  return treeOf(openBytes(b.bytes()));
}

TEST(BlockFields, SurviveLoadAndSave) {
  B b;
  auto si = b.source({.name = b.text("CAN1"), .source_type = 2, .bus_type = 2, .flags = 5});
  auto cc = b.conversion({.conversion_type = 1, .precision = 3, .flags = 0x0102, .values = {0.5, 2.0},
                          .physical_min = -1.0, .physical_max = 1.0});
  B::ChannelSpec cn{.source = si, .conversion = cc, .channel_type = 2, .sync_type = 1, .data_type = 4,
                    .bit_offset = 3, .byte_offset = 0x01020304, .bit_count = 64, .flags = 0x0A0B0C0D,
                    .invalidation_bit_position = 9, .precision = 2, .attachment_count = 0,
                    .value_range_min = 1.5, .value_range_max = 2.5, .limit_min = 3.5, .limit_max = 4.5,
                    .extended_limit_min = 5.5, .extended_limit_max = 6.5};
  B::ChannelGroupSpec cg{.acquisition_source = si, .record_id = 0x1122334455667788, .cycle_count = 42,
                         .flags = 0x0006, .path_separator = '.', .data_bytes = 17, .invalidation_bytes = 3};
  auto fh = b.fileHistory({.comment = b.metadata("<FHcomment/>"), .time = 99, .time_zone_offset = -60,
                           .daylight_saving_offset = 60, .time_flags = 2});
  B::HeaderSpec hd{.first_file_history = fh, .start_time = 123456789, .time_zone_offset = 120,
                   .daylight_saving_offset = -30, .time_flags = 1, .time_quality = 16, .flags = 3,
                   .start_angle = 0.25, .start_distance = 8.0};
  Tree first = loadTree(b, cg, cn, hd);
  ASSERT_TRUE(first.opened.file);
  Tree tree = treeOf(openBytes(saveToBytes(*first.opened.file)));  // the same fields once saved and loaded again
  ASSERT_TRUE(tree.opened.file);

  EXPECT_EQ(tree.header->start_time, 123456789u);
  EXPECT_EQ(tree.header->time_zone_offset, 120);
  EXPECT_EQ(tree.header->daylight_saving_offset, -30);
  EXPECT_EQ(tree.header->time_quality, 16);
  EXPECT_EQ(tree.header->flags, 3);
  EXPECT_EQ(tree.header->start_angle, 0.25);
  EXPECT_EQ(tree.header->start_distance, 8.0);
  auto* history = blockAs<FileHistoryBlock>(tree.header->file_history.front());
  ASSERT_TRUE(history);
  EXPECT_EQ(history->time, 99u);
  EXPECT_EQ(history->time_zone_offset, -60);
  EXPECT_EQ(history->daylight_saving_offset, 60);
  EXPECT_EQ(history->time_flags, 2);
  EXPECT_EQ(textOf(history->comment), "<FHcomment/>");
  EXPECT_EQ(tree.dg->record_id_size, 2);
  EXPECT_EQ(tree.cg->record_id, 0x1122334455667788u);
  EXPECT_EQ(tree.cg->cycle_count, 42u);
  EXPECT_EQ(tree.cg->path_separator, '.');
  EXPECT_EQ(tree.cg->data_bytes, 17u);
  EXPECT_EQ(tree.cg->invalidation_bytes, 3u);
  EXPECT_EQ(tree.cg->acquisition_source, tree.cn->source);
  EXPECT_EQ(tree.cn->channel_type, 2);
  EXPECT_EQ(tree.cn->sync_type, 1);
  EXPECT_EQ(tree.cn->bit_offset, 3);
  EXPECT_EQ(tree.cn->byte_offset, 0x01020304u);
  EXPECT_EQ(tree.cn->bit_count, 64u);
  EXPECT_EQ(tree.cn->flags, 0x0A0B0C0Du);
  EXPECT_EQ(tree.cn->invalidation_bit_position, 9u);
  EXPECT_EQ(tree.cn->precision, 2);
  EXPECT_EQ(tree.cn->value_range_min, 1.5);
  EXPECT_EQ(tree.cn->limit_max, 4.5);
  EXPECT_EQ(tree.cn->extended_limit_max, 6.5);
  auto* source = blockAs<SourceBlock>(tree.cn->source);
  ASSERT_TRUE(source);
  EXPECT_EQ(textOf(source->name), "CAN1");
  EXPECT_EQ(source->flags, 5);
  auto* conversion = blockAs<ConversionBlock>(tree.cn->conversion);
  ASSERT_TRUE(conversion);
  EXPECT_EQ(conversion->conversion_type, 1);
  EXPECT_EQ(conversion->precision, 3);
  EXPECT_EQ(conversion->flags, 0x0102);
  EXPECT_EQ(conversion->physical_min, -1.0);
  EXPECT_EQ(conversion->physical_max, 1.0);
  EXPECT_EQ(conversion->values, (std::vector<double>{0.5, 2.0}));
  EXPECT_EQ(conversion->header.length, 96u);
}

TEST(BlockFields, DerivedClassesFollowTypes) {
  struct ChannelCase {
    std::uint8_t channel_type, data_type;
    ChannelKind kind;
    ValueClass value_class;
  };
  for (const ChannelCase& c : {ChannelCase{0, 0, kChannelFixedLength, kValueUnsignedLittleEndian},
                               ChannelCase{1, 10, kChannelVariableLength, kValueByteArray},
                               ChannelCase{2, 4, kChannelMaster, kValueFloatLittleEndian},
                               ChannelCase{3, 1, kChannelUnsupported, kValueUnsupported},
                               ChannelCase{6, 2, kChannelVirtualData, kValueUnsupported}}) {
    B b;
    Tree tree = loadTree(b, {}, {.channel_type = c.channel_type, .data_type = c.data_type});
    ASSERT_TRUE(tree.cn);
    EXPECT_EQ(tree.cn->channel_kind, c.kind) << int(c.channel_type);
    EXPECT_EQ(tree.cn->value_class, c.value_class) << int(c.data_type);
  }
  struct SourceCase {
    std::uint8_t source_type, bus_type;
    SourceClass source_class;
    BusClass bus_class;
  };
  for (const SourceCase& c : {SourceCase{2, 0, kSourceBus, kBusNone}, SourceCase{2, 1, kSourceBus, kBusOther},
                              SourceCase{2, 2, kSourceBus, kBusCan}, SourceCase{1, 3, kSourceOther, kBusLin}}) {
    B b;
    Tree tree = loadTree(b, {}, {.source = b.source({.source_type = c.source_type, .bus_type = c.bus_type})});
    auto* source = tree.cn ? blockAs<SourceBlock>(tree.cn->source) : nullptr;
    ASSERT_TRUE(source);
    EXPECT_EQ(source->source_class, c.source_class);
    EXPECT_EQ(source->bus_class, c.bus_class) << int(c.bus_type);
  }
  for (std::uint16_t flags : {0x0007, 0x0008}) {
    B b;
    Tree tree = loadTree(b, {.flags = flags}, {});
    ASSERT_TRUE(tree.cg);
    bool all = flags == 0x0007;
    EXPECT_EQ(tree.cg->is_vlsd, all);
    EXPECT_EQ(tree.cg->is_bus_event, all);
    EXPECT_EQ(tree.cg->is_plain_bus_event, all);
  }
}

TEST(BlockFields, ConversionValuesAreReadBehindADeclaredLengthThatLeavesThemOut) {
  B b;
  auto cc = b.conversion({.conversion_type = 1, .values = {0.5, 2.0}});
  b.setLength(cc, 80);
  Tree tree = loadTree(b, {}, {.conversion = cc});
  ASSERT_TRUE(tree.opened.file);
  auto* conversion = blockAs<ConversionBlock>(tree.cn->conversion);
  EXPECT_EQ(conversion->values, (std::vector<double>{0.5, 2.0}));
  EXPECT_EQ(conversion->header.length, 80u);
}

TEST(BlockFields, ConversionWithReferenceLinksDoesNotLoad) {
  B b;
  auto cc = b.block("CC", {0, 0, 0, 0, b.text("ref")}, std::string(24, '\0'));
  EXPECT_FALSE(loadTree(b, {}, {.conversion = cc}).opened.file);
}

TEST(TextBlock, KeepsEveryByteAndIsWrittenWithItsStoredLength) {
  B b;
  hangInOneGroup(b, b.channel({.name = b.textBytes(std::string("abc\0\0\0\0\0", 8)), .unit = b.textBytes("")}));
  auto opened = openBytes(b.bytes());
  ASSERT_TRUE(opened.file);
  ChannelBlock* channel = firstChannel(*opened.file);
  EXPECT_EQ(blockAs<TextBlock>(channel->name)->text.size(), 8u);
  EXPECT_EQ(textOf(channel->name), "abc");
  EXPECT_EQ(blockAs<TextBlock>(channel->unit)->text.size(), 0u);
  std::string out = saveToBytes(*opened.file);
  std::uint64_t cn_pos = 336;
  EXPECT_EQ(readU64At(out, linkAt(out, cn_pos, 2) + 8), 32u);
  EXPECT_EQ(readU64At(out, linkAt(out, cn_pos, 6) + 8), 24u);
  EXPECT_EQ(linkAt(out, cn_pos, 6), linkAt(out, cn_pos, 2) + 32);
}

}  // namespace
}  // namespace qm::test
