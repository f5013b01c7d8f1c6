#include "tools/mdfgen/frame_records.h"

#include <gtest/gtest.h>

#include <vector>

#include "tools/mdfgen/little_endian.h"

namespace qm {
namespace {

std::vector<unsigned char> encoded(LoggedGroup group, const BusEvent& frame, std::uint64_t data_offset = 0) {
  const GroupSpec& fields = loggedGroups()[group];
  std::vector<unsigned char> record(fields.data_bytes, 0);
  encodeRecord(fields, frame, data_offset, record.data());
  return record;
}

TEST(FrameRecords, CanDataFramePacksIdentifierAndFlagsAsLoggersDo) {
  BusEvent frame;
  frame.time_us = 0x0102030405060708;
  frame.bus_channel = 2;
  frame.id = 0x1ABCDEF1;
  frame.ide = frame.dir = frame.edl = frame.esi = true;
  frame.dlc = 9;
  frame.data_length = 12;
  std::vector<unsigned char> expected = {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  // timestamp
                                         0x02,                                            // bus channel
                                         0xF1, 0xDE, 0xBC, 0x9A,  // 29-bit id, IDE in the top bit
                                         0xB9,                    // DLC, Dir, EDL, (BRS), ESI
                                         0x0C,                    // data length
                                         0x22, 0x11, 0, 0, 0, 0, 0, 0};  // offset of the payload
  EXPECT_EQ(encoded(kCanDataGroup, frame, 0x1122), expected);
}

TEST(FrameRecords, LinFrameCarriesEightDataBytes) {
  BusEvent frame;
  frame.kind = FrameKind::kLin;
  frame.time_us = 5;
  frame.bus_channel = 1;
  frame.id = 0x3B;
  frame.dir = true;
  frame.data_length = 4;
  frame.received_count = 4;
  for (int i = 0; i < 4; ++i) frame.data[i] = static_cast<std::uint8_t>(0xA0 + i);
  std::vector<unsigned char> expected = {5, 0, 0, 0, 0, 0, 0, 0, 1, 0xBB, 4, 4, 0xA0, 0xA1, 0xA2, 0xA3, 0, 0, 0, 0};
  EXPECT_EQ(encoded(kLinGroup, frame), expected);
}

TEST(FrameRecords, ChannelsStayInsideTheirRecordAndNeverOverlap) {
  for (const GroupSpec& group : loggedGroups()) {
    std::vector<int> owner(group.data_bytes * 8, -1);
    for (std::size_t c = 0; c < group.channels.size(); ++c) {
      const ChannelSpec& channel = group.channels[c];
      std::uint32_t first = channel.byte_offset * 8 + channel.bit_offset;
      ASSERT_LE(first + channel.bit_count, group.data_bytes * 8) << channel.name;
      ASSERT_LT(first + channel.bit_count, 256u) << channel.name;  // readers count bit positions in 8 bits
      for (std::uint32_t bit = first; bit < first + channel.bit_count; ++bit) {
        ASSERT_EQ(owner[bit], -1) << channel.name << " overlaps " << group.channels[owner[bit]].name;
        owner[bit] = static_cast<int>(c);
      }
    }
  }
}

TEST(BitPacking, WritesOnlyItsOwnBits) {
  unsigned char bytes[3] = {0xFF, 0xFF, 0xFF};
  putBits(bytes, 5, 6, 0);  // bits 5..10 cleared, across a byte boundary
  EXPECT_EQ(bytes[0], 0x1F);
  EXPECT_EQ(bytes[1], 0xF8);
  EXPECT_EQ(bytes[2], 0xFF);
  putBits(bytes, 5, 6, 0x2D);
  EXPECT_EQ(getBits(bytes, 5, 6), 0x2Du);
  EXPECT_EQ(getBits(bytes, 0, 5), 0x1Fu);
  EXPECT_EQ(getBits(bytes, 11, 13), 0x1FFFu);
}

}  // namespace
}  // namespace qm
