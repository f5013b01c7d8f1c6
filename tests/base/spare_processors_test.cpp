#include "base/spare_processors.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace qm {
namespace {

TEST(SpareProcessors, LeftOverUntilEveryProcessorRunsAConversion) {
  const unsigned processors = usableProcessors();
  ASSERT_GE(processors, 1u);
  EXPECT_TRUE(processorToSpare());
  std::vector<std::unique_ptr<RunningConversion>> running;
  for (unsigned i = 0; i + 1 < processors; ++i) running.push_back(std::make_unique<RunningConversion>());
  EXPECT_TRUE(processorToSpare());
  running.push_back(std::make_unique<RunningConversion>());
  EXPECT_FALSE(processorToSpare());
  running.pop_back();
  EXPECT_TRUE(processorToSpare()) << "a finished conversion gives its processor back";
}

}  // namespace
}  // namespace qm
