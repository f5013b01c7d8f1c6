#include "finalize/channel_layouts.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "finalize/conversion.h"
#include "tests/support/opened_file.h"
#include "tests/support/log_capture.h"
#include "tests/support/mdf_builder.h"

namespace qm {
namespace {

using test::MdfBuilder;
using test::OpenedFile;

TEST(ChannelLayouts, LeavesPositionsKindsConversionsAndUnsupportedType) {
  test::LogCapture log(kLogVerbose);
  MdfBuilder b;
  auto values = b.channelGroup({.record_id = 2, .flags = kChannelGroupVlsd});
  auto inner = b.channel({.name = b.text("inner"), .conversion = b.conversion({.conversion_type = 5, .values = {1, 100, 1, 9}}),
                          .data_type = 2, .bit_offset = 3, .byte_offset = 2, .bit_count = 5});
  auto parent = b.channel({.composition = inner, .name = b.text("parent"), .bit_count = 8});
  auto speed = b.channel({.name = b.text("speed"), .conversion = b.conversion({.conversion_type = 1, .values = {10, 0.5}}),
                          .data_type = 4, .bit_count = 64});
  auto frame = b.channel({.name = b.text("frame"), .data = values, .channel_type = 1, .data_type = 10, .bit_count = 64});
  b.chain({speed, parent, frame});
  auto group = b.channelGroup({.first_channel = speed, .record_id = 1, .data_bytes = 20});
  b.chain({group, values});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = group, .record_id_size = 1})});
  OpenedFile file(b.bytes());
  ASSERT_TRUE(file.file);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Unsupported channel data type: 0"});

  const ChannelLayoutList& list = test::channelGroup(file.group(0))->channel_layouts;
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0].name.view(), "speed");
  EXPECT_EQ(list[0].value_kind, ValueKind::kFloat);
  EXPECT_DOUBLE_EQ(applyConversion(list[0].conversion.get(), 4.0), 12.0);
  EXPECT_EQ(list[1].name.view(), "inner");  // the composition's leaf replaces its parent
  EXPECT_EQ(list[1].bit_position, 19u);
  EXPECT_EQ(list[1].value_kind, ValueKind::kUnsigned);  // signed integers are unsupported
  EXPECT_FALSE(list[1].little_endian);
  EXPECT_DOUBLE_EQ(applyConversion(list[1].conversion.get(), 1.0), 100.0);  // a repeated key keeps its first value
  EXPECT_EQ(list[2].value_kind, ValueKind::kByteArray);
  EXPECT_EQ(list[2].variable_data, file.group(0)->channel_groups[1]);
}

TEST(RecordLayouts, OnlyBusSourcesGetAFrameDecoder) {
  MdfBuilder b;
  auto canChannel = [&] { return b.channel({.name = b.text("CAN_DataFrame.ID"), .bit_count = 8}); };
  auto from_bus = b.channelGroup({.first_channel = canChannel(), .acquisition_source = b.source({.source_type = 2}),
                                  .record_id = 1, .data_bytes = 4});
  auto from_ecu = b.channelGroup({.first_channel = canChannel(), .acquisition_source = b.source({.source_type = 0}),
                                  .record_id = 2, .data_bytes = 4});
  b.chain({from_bus, from_ecu});
  b.header({.first_data_group = b.dataGroup({.first_channel_group = from_bus, .record_id_size = 1})});
  OpenedFile file(b.bytes());
  ASSERT_TRUE(file.file);
  EXPECT_EQ(file.group(0)->record_layouts.find(1)->decoder, kDecoderCanData);
  EXPECT_EQ(file.group(0)->record_layouts.find(2)->decoder, kDecoderPlain);
}

}  // namespace
}  // namespace qm
