#include "finalize/frame_decoders.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "mdf/payload_block.h"

namespace qm {
namespace {

ChannelLayout channel(const char* name, std::uint64_t bit_position, std::uint64_t bit_count,
                      ValueKind kind = ValueKind::kUnsigned) {
  ChannelLayout layout;
  layout.bit_position = bit_position, layout.bit_count = bit_count, layout.value_kind = kind, layout.name = name;
  return layout;
}

ChannelLayout signalBytes(const char* name) {
  ChannelLayout layout = channel(name, 0, 64, ValueKind::kByteArray);
  layout.variable_data = std::make_shared<PayloadBlock>(BlockType::kSD);
  return layout;
}

std::uint8_t decode(FrameDecoder decoder, const ChannelLayoutList& channels, const std::vector<std::uint8_t>& payload,
                    BusFrame& frame, const std::string& signal = "") {
  FrameRecord record{payload.data(), payload.size(), reinterpret_cast<const std::uint8_t*>(signal.data()),
                     signal.size(), &channels};
  return decoder(record, frame);
}

TEST(FrameClassification, OnePrefixChoosesByExactNameAndTwoPrefixesNone) {
  struct Case {
    std::vector<const char*> names;
    bool classified;
    std::uint8_t number;
  } cases[] = {
      {{"Timestamp", "CAN_DataFrame.ID", "CAN_DataFrame.DLC"}, true, kDecoderCanData},
      {{"LIN_Frame.ID"}, true, kDecoderLinFrame},
      {{"CAN_ErrorFrame.ID"}, true, kDecoderCanError},
      {{"CAN_DataFrameX.ID"}, true, kDecoderPlain},
      {{"CAN_DataFrame.ID", "LIN_Frame.ID"}, false, 77},
      {{"Timestamp"}, false, 77},
  };
  for (const Case& c : cases) {
    ChannelLayoutList channels;
    for (const char* name : c.names) channels.push_back(channel(name, 0, 8));
    FrameDecoder decoder = nullptr;
    std::uint8_t number = 77;
    EXPECT_EQ(classifyFrameChannels(channels, &decoder, &number), c.classified) << c.names.back();
    EXPECT_EQ(number, c.number) << c.names.back();
    EXPECT_EQ(decoder, c.classified ? frameDecoderFor(number) : nullptr);
  }
  BusFrame frame;
  EXPECT_EQ(decode(frameDecoderFor(kDecoderCanError), {channel("CAN_ErrorFrame.ID", 0, 8)}, {1}, frame),
            kDecoderNotDecoded);
}

TEST(CanDataFrame, OrsIdsMasksDataLengthAndFailsUnknownNamesSilently) {
  ChannelLayoutList channels = {
      channel("CAN_DataFrame.ID", 0, 16), channel("CAN_DataFrame.ID", 16, 16),
      channel("CAN_DataFrame.Dir", 32, 8), channel("CAN_DataFrame.DataLength", 40, 16),
      channel("CAN_DataFrame.DataBytes", 56, 16, ValueKind::kByteArray),
  };
  std::vector<std::uint8_t> payload = {0x00, 0x01, 0x01, 0x00, 1, 300 & 0xFF, 300 >> 8, 0xA0, 0xA1};
  BusFrame frame;
  ASSERT_EQ(decode(decodeCanDataFrame, channels, payload, frame), kDecoderCanData);
  EXPECT_EQ(frame.id, 0x101u);
  EXPECT_TRUE(frame.dir);
  EXPECT_EQ(frame.data_length, 44u);
  ASSERT_EQ(frame.data, frame.data_bytes);
  EXPECT_EQ(frame.data[1], 0xA1);

  channels.push_back(channel("CAN_DataFrame.Foo", 0, 8));
  testing::internal::CaptureStdout();
  EXPECT_EQ(decode(decodeCanDataFrame, channels, payload, frame), kDecoderNotDecoded);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(frame.data, nullptr);
  EXPECT_EQ(frame.data_length, 0u);
}

TEST(CanDataFrame, SignalDataBytesAreBoundedByTheirEndAndSixtyFour) {
  ChannelLayoutList channels = {signalBytes("CAN_DataFrame.DataBytes")};
  BusFrame frame;
  std::string truncated = std::string("\x0A\0\0\0\x07\x08", 6);  // claims 10, holds 2
  ASSERT_EQ(decode(decodeCanDataFrame, channels, {}, frame, truncated), kDecoderCanData);
  EXPECT_EQ(frame.data[1], 0x08);
  EXPECT_EQ(frame.data[2], 0x00);
  std::string too_long = std::string("\x41\0\0\0", 4) + std::string(65, 'x');
  EXPECT_EQ(decode(decodeCanDataFrame, channels, {}, frame, too_long), kDecoderNotDecoded);
  EXPECT_EQ(frame.data, nullptr);
}

TEST(LinFrame, UnknownRuleIsPrintedAndSignalDataEndsTheScan) {
  BusFrame frame;
  testing::internal::CaptureStdout();
  EXPECT_EQ(decode(decodeLinFrame, {channel("LIN_Frame.ID", 0, 8), channel("LIN_Frame.Foo", 8, 8)}, {1, 2}, frame),
            kDecoderNotDecoded);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Unknown rule: LIN_Frame.Foo\n");
  EXPECT_EQ(frame.data, nullptr);

  ChannelLayoutList channels = {channel("LIN_Frame.ID", 0, 8), signalBytes("LIN_Frame.DataBytes"),
                                channel("LIN_Frame.Foo", 8, 8)};
  ASSERT_EQ(decode(decodeLinFrame, channels, {0x21, 2}, frame), kDecoderLinFrame);
  EXPECT_EQ(frame.frame_kind, kFrameLin);
  EXPECT_EQ(frame.id, 0x21u);
}

}  // namespace
}  // namespace qm
