#include "platform/process_info.h"

#include <gtest/gtest.h>

#include <ctime>
#include <thread>
#include <tuple>

namespace qm {
namespace {

using Fields = std::tuple<int, int, int, int, int, int>;

Fields localFields(std::time_t at) {
  const std::tm* local = std::localtime(&at);
  return {local->tm_year + 1900, local->tm_mon + 1, local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec};
}

// Read between two readings of the C library's clock, the fields lie between its two local
// times: no field off by one, none counted from another origin.
TEST(ProcessInfo, LocalTimeIsTheMachinesLocalTimeWithMilliseconds) {
  const std::time_t before = std::time(nullptr);
  const LocalTime now = localTimeNow();
  const std::time_t after = std::time(nullptr);
  const Fields fields{now.year, now.month, now.day, now.hour, now.minute, now.second};
  EXPECT_LE(localFields(before), fields);
  EXPECT_LE(fields, localFields(after));
  EXPECT_GE(now.millisecond, 0);
  EXPECT_LE(now.millisecond, 999);
}

TEST(ProcessInfo, EveryThreadHasItsOwnId) {
  long long other_thread = 0;
  std::thread([&] { other_thread = threadId(); }).join();
  EXPECT_NE(other_thread, threadId());
#ifdef __linux__
  EXPECT_EQ(threadId(), processId()) << "the kernel's id of the main thread, as ps shows it";
#endif
}

}  // namespace
}  // namespace qm
