#include "base/spare_processors.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

namespace qm {
namespace {

TEST(SpareProcessors, LeftOverUntilEveryProcessorRunsAConversion) {
  unsigned processors = std::thread::hardware_concurrency();
  if (processors == 0) processors = 1;
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
