// Control groups are Linux's own.
#if defined(__linux__)
#include "platform/linux/control_group.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/support/temp_dir.h"

namespace qm {
namespace {

class ControlGroup : public ::testing::Test {
 protected:
  void write(const std::string& name, const std::string& text) { test::writeFile(root() + "/" + name, text); }
  std::string root() const { return dir_.path().string() + "/fs"; }
  ControlGroupPlace place(const std::string& membership) {
    write("../self", membership);
    return ControlGroupPlace{root(), dir_.path().string() + "/self"};
  }

  test::TempDir dir_;
};

TEST_F(ControlGroup, NothingToReadMeansNoLimits) {
  ControlGroupPlace nowhere{root(), root() + "/missing"};
  EXPECT_EQ(controlGroupMemoryLimit(nowhere), UINT64_MAX);
  EXPECT_EQ(controlGroupProcessorQuota(nowhere), 0u);
}

TEST_F(ControlGroup, CurrentKindAtTheTopStatesLimitsOrMax) {
  const ControlGroupPlace top = place("0::/\n");
  write("memory.max", "max\n");
  write("cpu.max", "max 100000\n");
  EXPECT_EQ(controlGroupMemoryLimit(top), UINT64_MAX);
  EXPECT_EQ(controlGroupProcessorQuota(top), 0u);

  write("memory.max", "536870912\n");
  write("cpu.max", "150000 100000\n");
  EXPECT_EQ(controlGroupMemoryLimit(top), 536870912u);
  EXPECT_EQ(controlGroupProcessorQuota(top), 2u) << "one and a half processors keep two busy";

  write("cpu.max", "50000 100000\n");
  EXPECT_EQ(controlGroupProcessorQuota(top), 1u);
}

TEST_F(ControlGroup, TheTightestLimitFromTheOwnGroupUpApplies) {
  const ControlGroupPlace nested = place("0::/batch.slice/job7.scope\n");
  write("batch.slice/cpu.max", "400000 100000\n");
  write("batch.slice/job7.scope/cpu.max", "max 100000\n");
  write("batch.slice/memory.max", "max\n");
  write("batch.slice/job7.scope/memory.max", "1073741824\n");
  write("batch.slice/job8.scope/cpu.max", "100000 100000\n");  // a sibling's limit is not ours
  EXPECT_EQ(controlGroupProcessorQuota(nested), 4u);
  EXPECT_EQ(controlGroupMemoryLimit(nested), 1073741824u);
}

TEST_F(ControlGroup, OlderKindStatesNoLimitAsTopNumberAndMinusOne) {
  // A container sees its own group at the top while its membership names the host's path.
  const ControlGroupPlace older = place("5:memory:/docker/abc\n2:cpu,cpuacct:/docker/abc\n0::/\n");
  write("memory/memory.limit_in_bytes", "9223372036854771712\n");
  write("cpu/cpu.cfs_quota_us", "-1\n");
  write("cpu/cpu.cfs_period_us", "100000\n");
  EXPECT_GE(controlGroupMemoryLimit(older), std::uint64_t{1} << 62) << "above any physical memory";
  EXPECT_EQ(controlGroupProcessorQuota(older), 0u);

  write("memory/memory.limit_in_bytes", "1073741824\n");
  write("cpu/cpu.cfs_quota_us", "400000\n");
  EXPECT_EQ(controlGroupMemoryLimit(older), 1073741824u);
  EXPECT_EQ(controlGroupProcessorQuota(older), 4u);
}

TEST_F(ControlGroup, OddFilesSetNoLimit) {
  const ControlGroupPlace top = place("garbage\n0::/\n");
  write("memory.max", "lots\n");
  write("cpu.max", "100000 0\n");
  EXPECT_EQ(controlGroupMemoryLimit(top), UINT64_MAX);
  EXPECT_EQ(controlGroupProcessorQuota(top), 0u);
}

}  // namespace
}  // namespace qm
#endif
