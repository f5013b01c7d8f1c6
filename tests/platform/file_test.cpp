#include "platform/file.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/file_system.h"
#include "platform/system_error.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

TEST(PlatformFile, TransfersAtOffsetsLandInPlaceAndLeaveThePosition) {
  test::TempDir dir;
  const std::string path = dir / "f.bin";
  std::optional<File> writer = File::open(path.c_str(), FileAccess::kWrite);
  ASSERT_TRUE(writer);
  ASSERT_TRUE(writer->writeAt(4, "efgh", 4) && writer->writeAt(0, "abcd", 4) && writer->writeAt(10, "kl", 2));
  EXPECT_EQ(writer->tell(), 0);
  ASSERT_TRUE(writer->close());

  std::optional<File> file = File::open(path.c_str(), FileAccess::kRead);
  ASSERT_TRUE(file);
  PathFacts facts;
  ASSERT_TRUE(file->facts(&facts));
  EXPECT_EQ(facts.size, 12);
  char first[3];
  ASSERT_EQ(file->read(first, 3), 3u);  // buffered: the reads at offsets must not disturb it
  struct Case {
    std::uint64_t offset;
    std::size_t count;
    std::string expected;  // short at the end of the file, gaps read as zeros
  };
  for (const Case& c : {Case{2, 4, "cdef"}, Case{8, 10, std::string("\0\0kl", 4)}, Case{12, 4, ""}, Case{99, 1, ""}}) {
    std::string out(c.count, '?');
    std::int64_t n = file->readAt(c.offset, out.data(), c.count);
    ASSERT_GE(n, 0) << "at " << c.offset;
    EXPECT_EQ(out.substr(0, static_cast<std::size_t>(n)), c.expected) << "at " << c.offset;
  }
  char next[2];
  ASSERT_EQ(file->read(next, 2), 2u);
  EXPECT_EQ(std::string(next, 2), "de");
  EXPECT_EQ(file->seek(-2, SeekFrom::kEnd), 10);
  EXPECT_EQ(file->seek(-20, SeekFrom::kCurrent), -1);
}

// Small transfers at the position are gathered in a buffer of the file's own: pieces that
// straddle its edges, seeks back into written bytes and past the end must all land in place.
TEST(PlatformFile, BufferedTransfersAtThePositionKeepEveryByteInPlace) {
  test::TempDir dir;
  const std::string path = dir / "f.bin";
  std::string expected;
  {
    std::optional<File> writer = File::open(path.c_str(), FileAccess::kWrite);
    ASSERT_TRUE(writer);
    for (std::size_t piece : {1000u, 70000u, 1u, 65536u, 4096u, 300000u, 17u}) {
      std::string bytes(piece, '\0');
      for (std::size_t i = 0; i < piece; ++i) bytes[i] = static_cast<char>((expected.size() + i) * 7 + piece);
      ASSERT_EQ(writer->write(bytes.data(), piece), piece);
      expected += bytes;
    }
    EXPECT_EQ(writer->tell(), static_cast<std::int64_t>(expected.size()));
    ASSERT_EQ(writer->seek(5, SeekFrom::kStart), 5);
    ASSERT_EQ(writer->write("XY", 2), 2u);
    expected.replace(5, 2, "XY");
    ASSERT_EQ(writer->seek(10, SeekFrom::kEnd), static_cast<std::int64_t>(expected.size() + 10));
    ASSERT_EQ(writer->write("end", 3), 3u);
    expected += std::string(10, '\0') + "end";
    ASSERT_TRUE(writer->flush());
    PathFacts facts;
    ASSERT_TRUE(writer->facts(&facts));
    EXPECT_EQ(facts.size, static_cast<std::int64_t>(expected.size()));
    ASSERT_TRUE(writer->close());
  }
  std::optional<File> reader = File::open(path.c_str(), FileAccess::kRead);
  ASSERT_TRUE(reader);
  std::string got;
  for (std::size_t piece = 1;; piece = piece * 3 + 1) {  // 1, 4, 13, ... 88573, 265720
    std::string bytes(piece, '?');
    const std::size_t n = reader->read(bytes.data(), piece);
    got.append(bytes, 0, n);
    if (n < piece) break;
  }
  EXPECT_EQ(got.size(), expected.size());
  EXPECT_TRUE(got == expected);
  EXPECT_EQ(reader->seek(-3, SeekFrom::kEnd), static_cast<std::int64_t>(expected.size() - 3));
  char end[4] = {};
  EXPECT_EQ(reader->read(end, 4), 3u);
  EXPECT_EQ(std::string(end), "end");
}

// A stop removes the output of a conversion still writing it.
TEST(PlatformFile, AFileBeingWrittenCanBeRemoved) {
  test::TempDir dir;
  const std::string path = dir / "out.MF4.partial";
  std::optional<File> writer = File::open(path.c_str(), FileAccess::kWrite);
  ASSERT_TRUE(writer);
  ASSERT_TRUE(writer->writeAt(0, "x", 1));
  EXPECT_TRUE(removeFile(path.c_str()));
  writer->close();
  PathFacts facts;
  ASSERT_TRUE(queryPath(path.c_str(), &facts));
  EXPECT_EQ(facts.type, PathType::kMissing);
}

#ifdef _WIN32
// Windows enforces what a reader lets others do: while an input is read, no other program may
// write it (so it cannot change under its conversion), but it may read, rename or remove it.
// A file another program is writing cannot be opened for reading at all.
TEST(PlatformFile, AnInputBeingReadRefusesWritersWindows) {
  test::TempDir dir;
  const std::string path = dir / "in.MF4";
  test::writeFile(path, "data");
  {
    std::optional<File> reader = File::open(path.c_str(), FileAccess::kRead);
    ASSERT_TRUE(reader);
    EXPECT_FALSE(File::open(path.c_str(), FileAccess::kWrite));
    const int kSharingViolation = 32;
    EXPECT_EQ(lastSystemError(), kSharingViolation) << systemErrorText(lastSystemError());
    EXPECT_TRUE(File::open(path.c_str(), FileAccess::kRead));
    PathFacts facts;
    EXPECT_TRUE(queryPath(path.c_str(), &facts) && facts.size == 4);
    EXPECT_TRUE(renameReplacing(path.c_str(), (dir / "moved.MF4").c_str()));
  }
  std::optional<File> writer = File::open(path.c_str(), FileAccess::kWrite);
  ASSERT_TRUE(writer);
  EXPECT_FALSE(File::open(path.c_str(), FileAccess::kRead));
}

TEST(PlatformFile, AFolderDoesNotOpenAsAFileWindows) {
  test::TempDir dir;
  setLastSystemError(0);
  EXPECT_FALSE(File::open(dir.path().string().c_str(), FileAccess::kRead));
  EXPECT_EQ(lastSystemError(), systemErrorIsADirectory()) << systemErrorText(lastSystemError());
}
#endif

}  // namespace
}  // namespace qm
