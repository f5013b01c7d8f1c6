#include "platform/process_usage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace qm {
namespace {

TEST(ProcessUsage, PeakResidentCountsTouchedMemoryInBytes) {
  constexpr std::size_t kSize = std::size_t{48} << 20;
  auto buffer = std::make_unique<char[]>(kSize);
  std::memset(buffer.get(), 1, kSize);
  EXPECT_GE(peakResidentBytes(), kSize);
  EXPECT_EQ(buffer[kSize - 1], 1);
}

}  // namespace
}  // namespace qm
