#include "stream/buffered_stream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "stream/file_stream.h"
#include "tests/support/counting_stream.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

TEST(BufferedStream, SizeIsRoundedUpToEightAndZeroRefused) {
  auto buffered = BufferedStream::create(test::memoryStreamOf("x"), 13);
  ASSERT_NE(buffered, nullptr);
  EXPECT_EQ(buffered->capacity(), 16u);
  EXPECT_EQ(BufferedStream::create(test::memoryStreamOf("x"), 16)->capacity(), 16u);
  EXPECT_EQ(BufferedStream::create(test::memoryStreamOf("x"), 0), nullptr);
  EXPECT_EQ(BufferedStream::create(nullptr, 8), nullptr);
}

TEST(BufferedStream, WholeFileBufferServesEverySeekFromMemory) {
  std::string data = test::patternBytes(1000);
  test::StreamCalls calls;
  auto buffered = BufferedStream::create(test::countingStreamOf(data, &calls), data.size());
  char buffer[100];
  ASSERT_EQ(buffered->read(buffer, 10), 10);
  int reads_after_first = calls.reads;
  std::mt19937 rng(1);
  for (int i = 0; i < 200; ++i) {
    std::int64_t at = rng() % 1000;
    // Reads stop short of the end: one that reaches it asks the inner stream for more.
    std::size_t n = std::min<std::size_t>(rng() % 100, 1000 - at);
    ASSERT_EQ(buffered->seek(at, kSeekSet), at);
    ASSERT_EQ(buffered->read(buffer, n), static_cast<std::int64_t>(n));
    ASSERT_EQ(std::string(buffer, n), data.substr(at, n));
  }
  EXPECT_EQ(buffered->seek(1000, kSeekSet), 1000);  // the very end of the buffered data
  EXPECT_EQ(calls.reads, reads_after_first);
}

TEST(BufferedStream, SmallBufferReadsAcrossRefills) {
  std::string data = test::patternBytes(5000);
  auto buffered = BufferedStream::create(test::memoryStreamOf(data), 61);  // 64 bytes
  std::mt19937 rng(2);
  char buffer[300];
  for (int i = 0; i < 300; ++i) {
    std::int64_t at = rng() % 5100;
    std::size_t n = rng() % sizeof buffer;
    std::int64_t landed = buffered->seek(at, rng() % 2 ? kSeekSet : kSeekCur);
    if (landed < 0) continue;
    std::int64_t expect = std::clamp<std::int64_t>(5000 - landed, 0, n);
    ASSERT_EQ(buffered->tell(), landed);
    ASSERT_EQ(buffered->read(buffer, n), expect) << landed;
    ASSERT_EQ(std::string(buffer, expect), data.substr(landed, expect));
  }
}

TEST(BufferedStream, SizeIsMeasuredAndSeeksOutsideTheInnerStreamKeepThePosition) {
  std::string data = test::patternBytes(100);
  auto buffered = BufferedStream::create(test::memoryStreamOf(data), 16);
  char buffer[4];
  ASSERT_EQ(buffered->read(buffer, 4), 4);
  EXPECT_EQ(streamSize(buffered.get()), 100);  // beyond the buffer's end
  EXPECT_EQ(buffered->tell(), 4);
  EXPECT_EQ(buffered->seek(100, kSeekSet), 100);  // the very end
  EXPECT_EQ(buffered->read(buffer, 4), 0);
  ASSERT_EQ(buffered->seek(50, kSeekSet), 50);
  EXPECT_EQ(buffered->seek(120, kSeekSet), 50);   // refill finds nothing there
  EXPECT_EQ(buffered->seek(-5, kSeekSet), 50);    // nor before the start
  EXPECT_EQ(buffered->seek(-500, kSeekCur), 50);
  EXPECT_EQ(buffered->seek(0, 9), kStreamRefused);
  EXPECT_EQ(buffered->seek(10, kSeekEnd), 90);  // the memory stream counts back from its end
  ASSERT_EQ(buffered->read(buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 4), data.substr(90, 4));
  EXPECT_EQ(buffered->write("x", 1), kStreamMissingOp);
  EXPECT_EQ(buffered->read(buffer, 0), 0);
}

TEST(BufferedStream, CloseClosesTheInnerStreamOnce) {
  test::StreamCalls calls;
  auto buffered = BufferedStream::create(test::countingStreamOf("abc", &calls), 8);
  EXPECT_EQ(buffered->close(), 0);
  EXPECT_EQ(calls.closes, 1);
  EXPECT_TRUE(calls.destroyed);
  EXPECT_EQ(buffered->close(), -1);  // nothing left to close
  char c;
  EXPECT_EQ(buffered->read(&c, 1), 0);
}

// A buffer that can take a whole file holds it at once, read or mapped: its bytes are in memory,
// they behave like a read buffer for every seek and read, and close releases them.
TEST(BufferedStream, WholeFileBufferHoldsTheFileReadOrMapped) {
  test::TempDir dir;
  std::string path = dir / "input.MF4";
  std::string data = test::patternBytes(10000);
  test::writeFile(path, data);
  for (std::uint64_t read_whole_limit : {BufferedStream::kReadWholeLimit, std::uint64_t{0}}) {
    for (std::size_t size : {data.size(), data.size() + 100}) {
    SCOPED_TRACE(std::to_string(read_whole_limit) + " " + std::to_string(size));
    auto buffered = BufferedStream::create(FileStream::open(path.c_str(), kFileRead), size, read_whole_limit);
    ASSERT_NE(buffered, nullptr);
    ByteView contents = buffered->contents();
#ifdef _WIN32
    // Windows reads inputs instead of mapping them: a file above the limit for reading it whole
    // is read piece by piece, through the same seeks and reads.
    const bool held = read_whole_limit != 0;
#else
    const bool held = true;
#endif
    ASSERT_EQ(contents.inMemory(), held);
    if (held) {
      EXPECT_EQ(std::string(reinterpret_cast<const char*>(contents.data), contents.size), data);
    }

    char buffer[8];
    EXPECT_EQ(buffered->seek(9996, kSeekSet), 9996);
    EXPECT_EQ(buffered->read(buffer, 8), 4);
    EXPECT_EQ(std::string(buffer, 4), data.substr(9996));
    EXPECT_EQ(buffered->read(buffer, 8), 0);
    EXPECT_EQ(buffered->seek(20000, kSeekSet), 10000);  // beyond the end the position stays
    EXPECT_EQ(streamSize(buffered.get()), 10000);
    EXPECT_EQ(buffered->seek(-10, kSeekEnd), 9990);
    EXPECT_EQ(buffered->seek(3, kSeekSet), 3);
    ASSERT_EQ(buffered->read(buffer, 8), 8);
    EXPECT_EQ(std::string(buffer, 8), data.substr(3, 8));

    EXPECT_EQ(buffered->close(), 0);
    EXPECT_FALSE(buffered->contents().inMemory());
    EXPECT_EQ(buffered->read(buffer, 1), 0);
    }
  }
}

// A whole-file buffer of a large file is read in two halves; a read-ahead smaller than the file
// holds none of it in memory.
TEST(BufferedStream, LargeFileReadInTwoHalvesHoldsEveryByteASmallerReadAheadShowsNone) {
  test::TempDir dir;
  std::string path = dir / "large.MF4";
  std::string data = test::patternBytes((std::size_t{20} << 20) + 13);  // halves meet inside it
  test::writeFile(path, data);
  auto whole = BufferedStream::create(FileStream::open(path.c_str(), kFileRead), data.size());
  ASSERT_NE(whole, nullptr);
  ByteView contents = whole->contents();
  ASSERT_EQ(contents.size, data.size());
  EXPECT_TRUE(std::memcmp(contents.data, data.data(), data.size()) == 0);
  auto ahead = BufferedStream::create(FileStream::open(path.c_str(), kFileRead), 4096);
  ASSERT_NE(ahead, nullptr);
  EXPECT_FALSE(ahead->contents().inMemory());
  std::string read(5000, '\0');
  EXPECT_EQ(ahead->read(read.data(), read.size()), 5000);
  EXPECT_EQ(read, data.substr(0, 5000));
}

}  // namespace
}  // namespace qm
