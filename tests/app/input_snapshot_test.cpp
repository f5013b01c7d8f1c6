#include "app/input_snapshot.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <functional>

#include "tests/support/temp_dir.h"

namespace qm {
namespace {

class InputSnapshotTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::writeFile(dir_ / "a.MF4", "unfinalized bytes");
    root_ = DirectoryHandle::create(dir_.path().string());
    ASSERT_NE(root_, nullptr);
  }

  test::TempDir dir_;
  std::unique_ptr<DirectoryHandle> root_;
};

TEST_F(InputSnapshotTest, AnUntouchedInputIsUnchanged) {
  InputSnapshot snapshot(*root_, "a.MF4");
  EXPECT_FALSE(snapshot.changed());
  EXPECT_FALSE(snapshot.changed());
}

// A logger still writing, a copy cut short, a file put in its place with the same size, a
// file removed: each is a change.
TEST_F(InputSnapshotTest, GrowingShrinkingReplacedOrRemovedInputsChanged) {
  const std::function<void()> changes[] = {
      [&] { test::writeFile(dir_ / "a.MF4", "unfinalized bytes and more"); },
      [&] { std::filesystem::resize_file(dir_ / "a.MF4", 4); },
      [&] {
        test::writeFile(dir_ / "b.MF4", "abcd");
        ASSERT_EQ(std::rename((dir_ / "b.MF4").c_str(), (dir_ / "a.MF4").c_str()), 0);
      },
      [&] { std::filesystem::remove(dir_ / "a.MF4"); },
  };
  for (const auto& change : changes) {
    InputSnapshot snapshot(*root_, "a.MF4");
    change();
    EXPECT_TRUE(snapshot.changed());
  }
}

TEST_F(InputSnapshotTest, AnInputThatWasNotThereToBeginWithCountsAsUnchanged) {
  InputSnapshot snapshot(*root_, "missing.MF4");
  test::writeFile(dir_ / "missing.MF4", "now it is");
  EXPECT_FALSE(snapshot.changed());
}

}  // namespace
}  // namespace qm
