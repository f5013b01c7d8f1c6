#include "stream/write_window.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/system_error.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

using test::TempDir;

// What a write to a full disk fails with. Windows has no /dev/full, but Wine opens Linux's by
// that name and reports the system's own number for a full disk.
#ifdef _WIN32
constexpr int kDiskFull = 112;  // ERROR_DISK_FULL
#else
constexpr int kDiskFull = ENOSPC;
#endif

// Writes through a window and straight into a copy in memory side by side; the file must end up
// as the copy, bytes never written reading as zeros.
class Mirrored {
 public:
  explicit Mirrored(const std::string& path) : file_(File::open(path.c_str(), FileAccess::kWrite)) {
    if (file_) window_.emplace(*file_);
  }

  bool write(std::uint64_t offset, const std::string& bytes) {
    if (expected_.size() < offset + bytes.size()) expected_.resize(offset + bytes.size(), '\0');
    expected_.replace(offset, bytes.size(), bytes);
    return window_->write(offset, bytes.data(), bytes.size());
  }
  bool flush() { return window_->flush(); }
  const std::string& expected() const { return expected_; }
  bool opened() const { return file_.has_value(); }

 private:
  std::optional<File> file_;
  std::optional<WriteWindow> window_;
  std::string expected_;
};

TEST(WriteWindow, BlocksSavedOutOfOrderEndUpInPlaceAndGapsNeverOverwriteTheFile) {
  TempDir dir;
  Mirrored file(dir / "blocks.bin");
  ASSERT_TRUE(file.opened());
  // A header, blocks placed after it with a byte of padding, links patched afterwards, and a
  // later write over bytes already written.
  EXPECT_TRUE(file.write(0, std::string(64, 'H')));
  EXPECT_TRUE(file.write(200, std::string(40, 'B')));
  EXPECT_TRUE(file.write(65, std::string(100, 'A')));
  EXPECT_TRUE(file.write(24, "link"));
  EXPECT_TRUE(file.write(210, "new"));
  EXPECT_TRUE(file.flush());
  EXPECT_EQ(test::readFile(dir / "blocks.bin"), file.expected());
  // Two patches with a gap between them, over bytes already on disk: the gap keeps its bytes.
  EXPECT_TRUE(file.write(70, "ab"));
  EXPECT_TRUE(file.write(80, "cd"));
  EXPECT_TRUE(file.flush());
  EXPECT_EQ(test::readFile(dir / "blocks.bin"), file.expected());
}

TEST(WriteWindow, RandomWritesAcrossWindowsMatchPlainWrites) {
  TempDir dir;
  std::mt19937 random(12345);
  for (int round = 0; round < 20; ++round) {
    const std::string path = dir / ("random" + std::to_string(round) + ".bin");
    Mirrored file(path);
    ASSERT_TRUE(file.opened());
    for (int i = 0; i < 300; ++i) {
      // Mostly small writes near each other, some far away, some large enough to go straight.
      const std::uint64_t offset = random() % 8 == 0 ? random() % (3 << 20) : random() % (300 << 10);
      const std::size_t size = random() % 50 == 0 ? 100000 + random() % 200000 : 1 + random() % 300;
      std::string bytes(size, static_cast<char>('a' + random() % 26));
      ASSERT_TRUE(file.write(offset, bytes));
      if (random() % 40 == 0) {
        ASSERT_TRUE(file.flush());
      }
    }
    ASSERT_TRUE(file.flush());
    ASSERT_EQ(test::readFile(path), file.expected()) << "round " << round;
  }
}

TEST(WriteWindow, ARefusedWriteSaysWhy) {
  std::optional<File> full = File::open("/dev/full", FileAccess::kWrite);
  if (!full) GTEST_SKIP() << "no /dev/full";
  WriteWindow window(*full);
  EXPECT_TRUE(window.write(0, "held", 4));
  setLastSystemError(0);
  EXPECT_FALSE(window.flush());
  EXPECT_EQ(lastSystemError(), kDiskFull);
  const std::vector<char> large(200000, 'L');
  EXPECT_FALSE(window.write(0, large.data(), large.size())) << "a large write goes straight and fails at once";
}

}  // namespace
}  // namespace qm
