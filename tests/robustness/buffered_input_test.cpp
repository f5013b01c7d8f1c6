// A read-ahead buffer of any size is invisible in the output: the conversion gives the same
// bytes as one that reads straight from the input.
#include <gtest/gtest.h>

#include <string>

#include "tests/robustness/logger_file.h"
#include "tests/robustness/memory_conversion.h"
#include "tests/support/container_writer.h"

namespace qm::test {
namespace {

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
