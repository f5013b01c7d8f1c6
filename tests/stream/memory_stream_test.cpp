#include "stream/memory_stream.h"

#include <gtest/gtest.h>

#include "stream/stream_reader.h"
#include "tests/support/counting_stream.h"

namespace qm {
namespace {

TEST(MemoryStream, ReadsStopAtTheSizeEvenWithinTheCapacity) {
  MemoryStream m;
  ASSERT_EQ(m.write("0123456789", 10), 10);
  EXPECT_EQ(m.capacity(), 16u);  // doubled from 2
  char buffer[8];
  EXPECT_EQ(m.read(buffer, 8), 0);  // at the size
  ASSERT_EQ(m.seek(14, kSeekSet), 14);  // beyond the size, within the capacity
  EXPECT_EQ(m.read(buffer, 8), 0);
  ASSERT_EQ(m.seek(8, kSeekSet), 8);
  EXPECT_EQ(m.read(buffer, 8), 2);
}

TEST(MemoryStream, SeekQuirks) {
  MemoryStream m;
  ASSERT_EQ(m.write("0123456789", 10), 10);
  EXPECT_EQ(m.seek(16, kSeekEnd), 0);  // counts back from the end and stops at the start
  EXPECT_EQ(m.seek(3, kSeekEnd), 7);
  EXPECT_EQ(m.seek(-2, kSeekCur), 5);
  EXPECT_EQ(m.seek(-6, kSeekCur), kStreamRefused);
  EXPECT_EQ(m.seek(16, kSeekSet), 16);  // the capacity bounds seeks, not the size
  EXPECT_EQ(m.seek(17, kSeekSet), kStreamRefused);
  EXPECT_EQ(m.seek(0, 3), kStreamRefused);
  EXPECT_EQ(m.tell(), 16);

  MemoryStream small;
  ASSERT_EQ(small.write("abc", 3), 3);
  ASSERT_EQ(small.capacity(), 4u);
  EXPECT_EQ(small.seek(5, kSeekSet), kStreamRefused);
  EXPECT_EQ(small.tell(), 3);
}

TEST(MemoryStream, WritingAfterASeekPastTheSizeGrowsIt) {
  MemoryStream m;
  ASSERT_EQ(m.write("abcd", 4), 4);
  ASSERT_EQ(m.seek(2, kSeekSet), 2);
  ASSERT_EQ(m.write("XY", 2), 2);
  EXPECT_EQ(m.size(), 4u);
  ASSERT_EQ(m.write("Z", 1), 1);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(m.data()), m.size()), "abXYZ");
}

TEST(MemoryStream, SizeLeavesThePositionAndSetPositionChecksTheResult) {
  auto m = test::memoryStreamOf("0123456789");
  m->seek(4, kSeekSet);
  EXPECT_EQ(streamSize(m.get()), 10);
  EXPECT_EQ(m->tell(), 4);
  EXPECT_TRUE(setPosition(m.get(), 9));
  EXPECT_FALSE(setPosition(m.get(), 99));
  EXPECT_EQ(m->tell(), 9);
}

TEST(StreamReader, TypedReadsAndTheirEnd) {
  auto m = test::memoryStreamOf(std::string("\x01\x02\x03\x04\x05\x06\x07", 7));
  m->seek(1, kSeekSet);
  StreamReader reader(m.get());  // based where the stream stands
  std::uint16_t le = 0;
  ASSERT_TRUE(reader.read(le));
  EXPECT_EQ(le, 0x0302);
  m->seek(0, kSeekSet);  // other code moving the stream does not disturb the cursor
  std::uint32_t be = 0;
  ASSERT_TRUE(reader.readU32BigEndian(be));
  EXPECT_EQ(be, 0x04050607u);
  std::uint8_t past = 0;
  EXPECT_FALSE(reader.read(past));
  EXPECT_EQ(reader.offset(), 6u);  // a failed read does not advance

  StreamReader short_read(m.get(), 5);
  std::uint32_t word = 0;
  EXPECT_FALSE(short_read.read(word));
  EXPECT_EQ(short_read.offset(), 0u);
  SmallString text("ab");
  EXPECT_FALSE(short_read.readText(text, 3));
  EXPECT_EQ(text.view(), "ab");
  EXPECT_TRUE(short_read.readText(text, 2));
  EXPECT_EQ(text.view(), "ab\x06\x07");
}

TEST(StreamReader, WritesLandAtTheCursorAndStopAtTheCapacity) {
  MemoryStream m;
  StreamReader writer(&m, 0);
  ASSERT_TRUE(writer.write(std::uint32_t{0x44434241}));
  ASSERT_TRUE(writer.writeBytes("EF", 2));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(m.data()), m.size()), "ABCDEF");
  writer.skip(4);  // 10 lies beyond the capacity of 8, so the memory stream refuses the seek
  EXPECT_FALSE(writer.writeBytes("G", 1));
  EXPECT_EQ(writer.offset(), 10u);
  EXPECT_EQ(m.size(), 6u);
}

}  // namespace
}  // namespace qm
