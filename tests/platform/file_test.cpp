#include "platform/file.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/file_system.h"
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

}  // namespace
}  // namespace qm
