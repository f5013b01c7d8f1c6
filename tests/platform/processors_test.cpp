#include "platform/processors.h"

#include <gtest/gtest.h>

#include <thread>

namespace qm {
namespace {

TEST(Processors, AtLeastOneAndNoMoreThanTheMachineHas) {
  const unsigned usable = countUsableProcessors();
  EXPECT_GE(usable, 1u);
  if (const unsigned online = std::thread::hardware_concurrency(); online != 0) {
    EXPECT_LE(usable, online);
  }
}

}  // namespace
}  // namespace qm
