#include "tools/mdfgen/logger_file_writer.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tools/mdfgen/byte_source.h"
#include "tools/mdfgen/mdf_tree.h"
#include "tools/mdfgen/mdf_verifier.h"
#include "tools/mdfgen/tests/generated_file.h"

namespace qm {
namespace {

using test::fieldAt;
using test::generatedFile;

VerifyReport verifyBytes(const std::string& bytes) { return verifyMdfFile(MemorySource(bytes)); }

TEST(LoggerFile, UnfinalizedFileVerifiesWithEveryKindOfFrame) {
  std::string file = generatedFile(200 * 1024, 7);
  VerifyReport report = verifyBytes(file);
  ASSERT_TRUE(report.ok()) << report.problems[0];
  EXPECT_EQ(file.substr(0, 8), "UnFinMF ");
  EXPECT_EQ(fieldAt(file, 60, 2), 0x0025u);
  EXPECT_NE(report.file_line.find("1 data groups, 4 channel groups"), std::string::npos);
  ASSERT_EQ(report.content_lines.size(), 4u);
  for (const std::string& line : report.content_lines) EXPECT_EQ(line.find(": 0 "), std::string::npos) << line;
}

TEST(LoggerFile, DataBlockComesLastAndKeepsAStaleLength) {
  std::string file = generatedFile(300 * 1024, 3);
  MdfTree tree;
  ProblemList problems;
  readMdfTree(MemorySource(file), tree, problems);
  ASSERT_TRUE(problems.empty());
  ASSERT_EQ(tree.data_groups.size(), 1u);
  std::uint64_t data = tree.data_groups[0].data_offset;
  for (const BlockExtent& block : tree.extents) EXPECT_LE(block.offset, data);
  std::uint64_t declared = fieldAt(file, data + 8, 8);
  EXPECT_LT(declared, file.size() - data);
  EXPECT_EQ((declared - 24) % (64 * 1024), 0u);
  // Without the flag that excuses it, the stale length is an error a reader would trip over.
  test::setFieldAt(file, 60, 0x0021, 2);
  EXPECT_FALSE(verifyBytes(file).ok());
}

TEST(LoggerFile, SeedDecidesTheBytes) {
  EXPECT_EQ(generatedFile(50 * 1024, 11), generatedFile(50 * 1024, 11));
  EXPECT_NE(generatedFile(50 * 1024, 11), generatedFile(50 * 1024, 12));
}

TEST(LoggerFile, SizeIsReachedWithinOneFrame) {
  constexpr std::uint64_t kLargestFrame = 1 + 23 + 1 + 4 + 64;
  for (std::uint64_t size : {std::uint64_t{100 * 1000}, std::uint64_t{3 << 20}}) {
    std::uint64_t written = generatedFile(size, 5).size();
    EXPECT_GE(written, size);
    EXPECT_LT(written, size + kLargestFrame);
  }
}

TEST(LoggerFile, TinySizeStillHoldsEveryKindOfFrame) {
  VerifyReport report = verifyBytes(generatedFile(1, 9));
  ASSERT_TRUE(report.ok());
  ASSERT_EQ(report.content_lines.size(), 4u);
  for (const std::string& line : report.content_lines) EXPECT_EQ(line.find(": 0 "), std::string::npos) << line;
}

TEST(LoggerFile, SortedFormHoldsTheSameFramesWithCycleCounts) {
  VerifyReport unsorted = verifyBytes(generatedFile(150 * 1024, 21));
  std::string sorted_file = generatedFile(150 * 1024, 21, true);
  VerifyReport sorted = verifyBytes(sorted_file);
  ASSERT_TRUE(sorted.ok()) << sorted.problems[0];
  EXPECT_EQ(sorted_file.substr(0, 8), "MDF     ");
  EXPECT_NE(sorted.file_line.find("flags 0x0000/0x0000, 3 data groups, 3 channel groups"), std::string::npos);
  EXPECT_EQ(sorted.content_lines, unsorted.content_lines);
}

TEST(LoggerFile, StreamedToDiskEqualsBuiltInMemory) {
  // Large enough that the stale length is patched after the sink's buffer went to disk.
  LoggerFileSettings settings;
  settings.size = 3 << 20;
  settings.seed = 4;
  char path[] = "/tmp/mdfgen-test-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  std::unique_ptr<FileSink> sink = FileSink::create(path);
  ASSERT_TRUE(sink && writeLoggerFile(settings, *sink) && sink->close());
  std::ifstream in(path, std::ios::binary);
  std::string on_disk((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::remove(path);
  EXPECT_EQ(on_disk, generatedFile(settings.size, settings.seed));
}

}  // namespace
}  // namespace qm
