// Every prefix of a realistic logger file, as a logger cut off by a power loss leaves it: each
// must convert to a valid file or fail cleanly, plain or inside a container. And a read-ahead
// buffer of any size is invisible in the output.
#include <gtest/gtest.h>

#include <string>

#include "tests/robustness/memory_conversion.h"
#include "tests/support/container_writer.h"
#include "tests/support/log_capture.h"

namespace qm::test {
namespace {

bool isPrefixOf(const std::string& part, const std::string& whole) { return whole.compare(0, part.size(), part) == 0; }

// A cut file converts to a valid file whose groups hold a prefix of what the whole file's
// groups hold (a torn record is dropped, never padded), or it fails to open. Returns how many
// prefixes converted.
int sweepPrefixes(const std::string& input, const FinalizedContent& whole) {
  int converted = 0;
  for (std::size_t length = 0; length <= input.size(); ++length) {
    SCOPED_TRACE("prefix length " + std::to_string(length));
    // Read through a buffer of the whole input, as the program does by default.
    MemoryConversion result = convertInMemory(std::string_view(input).substr(0, length), length);
    if (!result.opened) continue;
    EXPECT_TRUE(result.saved);
    std::optional<FinalizedContent> content = readFinalized(result.output);
    if (!content) {
      ADD_FAILURE() << "the output does not load";
      continue;
    }
    ++converted;
    EXPECT_EQ(content->standard_flags, 0);
    EXPECT_TRUE(isPrefixOf(content->signal_data, whole.signal_data));
    for (const auto& [record_id, records] : content->records) {
      auto expected = whole.records.find(record_id);
      EXPECT_TRUE(expected != whole.records.end() && isPrefixOf(records, expected->second)) << "record id " << record_id;
    }
    if (::testing::Test::HasFailure()) break;  // one broken prefix tells enough
  }
  return converted;
}

class Truncation : public ::testing::Test {
 protected:
  void SetUp() override {
    file_ = loggerFile();
    MemoryConversion result = convertInMemory(file_);
    ASSERT_TRUE(result.opened && result.saved);
    std::optional<FinalizedContent> content = readFinalized(result.output);
    ASSERT_TRUE(content);
    whole_ = *content;
    // The file really exercises the sort: every group has records, the VLSD values became
    // signal data.
    ASSERT_EQ(whole_.records.size(), 3u);
    for (const auto& [record_id, records] : whole_.records) EXPECT_FALSE(records.empty()) << record_id;
    ASSERT_FALSE(whole_.signal_data.empty());
  }

  LogCapture quiet_;  // cut files are reported at every prefix
  std::string file_;
  FinalizedContent whole_;
};

TEST_F(Truncation, EveryPrefixOfAPlainFileConvertsOrFailsCleanly) {
  int converted = sweepPrefixes(file_, whole_);
  // Every cut inside the record data still opens (the last block runs to the end of the file).
  EXPECT_GT(converted, 200);
}

TEST_F(Truncation, EveryPrefixOfACompressedContainerConvertsOrFailsCleanly) {
  std::string container = makeCompressedContainer(file_, 0x1A2B, 8, 4);
  EXPECT_GT(sweepPrefixes(container, whole_), 20);
}

TEST_F(Truncation, NoPrefixOfAnEncryptedContainerButTheWholeOneOpens) {
  std::string container = makeEncryptedContainer(file_, 0x1A2B, kContainerPassword, 1);
  for (std::size_t length = 0; length < container.size(); ++length) {
    ASSERT_FALSE(convertInMemory(std::string_view(container).substr(0, length)).opened) << length;
  }
  MemoryConversion whole = convertInMemory(container);
  ASSERT_TRUE(whole.opened);
  EXPECT_EQ(readFinalized(whole.output)->records, whole_.records);
}

// The same bytes as a conversion that reads straight from the input.
TEST(BufferedInput, ReadAheadOfAnySizeConvertsLikeTheUnbufferedInput) {
  const std::string plain = loggerFile();
  for (const std::string& input : {plain, makeCompressedContainer(plain, 7, 10, 5)}) {
    const MemoryConversion direct = convertInMemory(input);
    ASSERT_TRUE(direct.saved);
    for (std::size_t read_ahead : {1ul, 8ul, 64ul, 1000ul, input.size() - 1, input.size(), input.size() + 100}) {
      SCOPED_TRACE("read-ahead " + std::to_string(read_ahead));
      MemoryConversion buffered = convertInMemory(input, read_ahead);
      EXPECT_TRUE(buffered.saved);
      EXPECT_EQ(buffered.output, direct.output);
    }
  }
}

}  // namespace
}  // namespace qm::test
