#include "stream/file_stream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/support/temp_dir.h"

namespace qm {
namespace {

using test::TempDir;

// What a write to a full disk fails with. Windows has no /dev/full, but Wine opens Linux's by
// that name and reports the system's own number for a full disk.
#ifdef _WIN32
constexpr int kDiskFull = 112;  // ERROR_DISK_FULL
#else
constexpr int kDiskFull = ENOSPC;
#endif

TEST(FileStream, ModeDecidesWhichTransfersExist) {
  TempDir dir;
  test::writeFile(dir / "a.bin", "abc");
  EXPECT_EQ(FileStream::open((dir / "a.bin").c_str(), 3), nullptr);
  EXPECT_EQ(FileStream::open((dir / "missing.bin").c_str(), kFileRead), nullptr);
  auto reader = FileStream::open((dir / "a.bin").c_str(), kFileRead);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader->write("x", 1), kStreamMissingOp);
  char byte;
  EXPECT_EQ(reader->read(&byte, 1), 1);

  auto writer = FileStream::open((dir / "b.bin").c_str(), kFileWrite);
  ASSERT_NE(writer, nullptr);
  EXPECT_EQ(writer->read(&byte, 1), kStreamMissingOp);
  EXPECT_EQ(writer->write("xyz", 3), 3);
  EXPECT_EQ(writer->close(), 0);
  EXPECT_EQ(test::readFile(dir / "b.bin"), "xyz");
}

TEST(FileStream, TracksPositionThroughReadsAndSeeksButNotPositionedReads) {
  TempDir dir;
  test::writeFile(dir / "a.bin", "0123456789");
  auto file = FileStream::open((dir / "a.bin").c_str(), kFileRead);
  ASSERT_NE(file, nullptr);
  char buffer[16] = {};
  EXPECT_EQ(file->read(buffer, 4), 4);
  EXPECT_EQ(file->readAt(5, buffer, 16), 5);  // short at the end of the file, position kept
  EXPECT_EQ(std::string(buffer, 5), "56789");
  EXPECT_EQ(file->readAt(20, buffer, 4), 0);
  EXPECT_EQ(file->seek(4, kSeekSet), 4);  // served from the tracked position
  EXPECT_EQ(file->seek(2, kSeekCur), 6);
  EXPECT_EQ(file->read(buffer, 16), 4);
  EXPECT_EQ(std::string(buffer, 4), "6789");
  EXPECT_EQ(file->seek(-3, kSeekEnd), 7);
  EXPECT_EQ(file->seek(0, 7), kStreamRefused);
  EXPECT_EQ(file->seek(-20, kSeekSet), -1);
  EXPECT_EQ(file->tell(), 7);

  auto writer = FileStream::open((dir / "b.bin").c_str(), kFileWrite);
  ASSERT_NE(writer, nullptr);
  EXPECT_EQ(writer->readAt(0, buffer, 1), kStreamMissingOp);
}

TEST(FileStream, PositionsBeyondTwoGigabytesWork) {
  TempDir dir;
  auto file = FileStream::open((dir / "sparse.bin").c_str(), kFileWrite);
  ASSERT_NE(file, nullptr);
  const std::int64_t far = (std::int64_t{3} << 30) + 5;
  ASSERT_EQ(file->seek(far, kSeekSet), far);
  EXPECT_EQ(file->write("z", 1), 1);
  EXPECT_EQ(file->tell(), far + 1);
  EXPECT_EQ(file->seek(0, kSeekEnd), far + 1);
}

TEST(FileStream, AWriteOnlyStreamSeeksLikeTheFileWithItsWritesGathered) {
  TempDir dir;
  auto file = FileStream::open((dir / "w.bin").c_str(), kFileWrite);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->write("0123456789", 10), 10);
  EXPECT_EQ(file->seek(2, kSeekSet), 2);
  EXPECT_EQ(file->write("ab", 2), 2);
  EXPECT_EQ(file->seek(0, kSeekEnd), 10) << "a write inside the file does not grow it";
  EXPECT_EQ(file->seek(-20, kSeekCur), -1);
  EXPECT_EQ(file->tell(), 10) << "a refused seek leaves the position";
  EXPECT_EQ(file->seek(3, kSeekCur), 13);
  EXPECT_EQ(file->write("z", 1), 1);
  EXPECT_TRUE(file->handOverWrites());
  EXPECT_EQ(test::readFile(dir / "w.bin"), std::string("01ab456789\0\0\0z", 14)) << "handed over before the close";
  EXPECT_EQ(file->close(), 0);
}

// On /dev/full every write that reaches the system fails: gathered writes fail at the hand-over
// or the close, which leaves nothing open; discarded ones never reach it.
TEST(FileStream, GatheredWritesThatFailShowAtTheHandOverAndTheCloseDiscardedOnesNever) {
  for (int variant = 0; variant < 3; ++variant) {
    auto full = FileStream::open("/dev/full", kFileWrite);
    if (!full) GTEST_SKIP() << "no /dev/full";
    EXPECT_EQ(full->write("data", 4), 4);  // still gathered in memory
    if (variant == 0) {
      EXPECT_FALSE(full->handOverWrites());
      EXPECT_EQ(full->lastError(), kDiskFull);
      EXPECT_EQ(full->write("more", 4), 0) << "nothing is written after a failure";
    }
    if (variant == 2) full->discardWrites();
    EXPECT_EQ(full->close() == 0, variant == 2) << variant;
    EXPECT_FALSE(full->isOpen());
    EXPECT_EQ(full->close(), 0);
  }
}

}  // namespace
}  // namespace qm
