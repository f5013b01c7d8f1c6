#include "tools/mdfgen/byte_source.h"

#include <gtest/gtest.h>

#include "tools/mdfgen/mdf_verifier.h"
#include "tools/mdfgen/tests/generated_file.h"

namespace qm {
namespace {

TEST(RangeReader, ReadsAndSkipsAcrossItsBufferChunks) {
  std::string bytes(3 << 20, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
  MemorySource source(bytes);
  RangeReader reader(source, 100, bytes.size() - 100);
  std::size_t at = 100;
  std::string piece;
  // Pieces of varied sizes, some straddling a chunk boundary, some skipped over it.
  for (std::size_t step : {std::size_t{1000}, std::size_t{(1 << 20) - 1010}, std::size_t{40}, std::size_t{1 << 20},
                           std::size_t{3}}) {
    piece.resize(step);
    ASSERT_TRUE(reader.read(piece.data(), step));
    ASSERT_EQ(piece, bytes.substr(at, step));
    at += step;
    ASSERT_TRUE(reader.skip(step / 3));
    at += step / 3;
  }
  EXPECT_EQ(reader.position(), at - 100);
  EXPECT_EQ(reader.remaining(), bytes.size() - 100 - at);
  piece.resize(reader.remaining() + 1);
  EXPECT_FALSE(reader.read(piece.data(), piece.size()));
  EXPECT_FALSE(reader.skip(reader.remaining() + 1));
}

TEST(RangeReader, StopsAtTheEndOfTheSourceWhateverTheRangeSays) {
  MemorySource source("0123456789");
  RangeReader reader(source, 4, 1000);
  EXPECT_EQ(reader.remaining(), 6u);
  char out[6];
  EXPECT_TRUE(reader.read(out, 6));
  EXPECT_EQ(std::string(out, 6), "456789");
}

TEST(MdfVerifierOnLargeFiles, RecordsAcrossReadChunksAreWalkedWhole) {
  VerifyReport report = verifyMdfFile(MemorySource(test::generatedFile(5 << 20, 13)));
  EXPECT_TRUE(report.ok()) << report.problems[0];
}

}  // namespace
}  // namespace qm
