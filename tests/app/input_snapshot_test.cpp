#include "app/input_snapshot.h"

#include <gtest/gtest.h>

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
        // Replacing the file, as rename(2) does; the C library's rename on Windows refuses to.
        std::error_code error;
        std::filesystem::rename(test::pathOf(dir_ / "b.MF4"), test::pathOf(dir_ / "a.MF4"), error);
        ASSERT_FALSE(error) << error.message();
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
