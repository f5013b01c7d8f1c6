#include "memory/mapping_fault_watch.h"

#include <gtest/gtest.h>

// Windows reads inputs instead of mapping them, and a mapped file cannot be shortened there.
#ifndef _WIN32
#include <unistd.h>

#include <csignal>
#include <thread>

#include "memory/file_mapping.h"
#include "stream/file_stream.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

constexpr std::size_t kFileSize = 64 * 4096;

// The file stays open only as long as it takes to map it, as a mapping outlives its file.
std::unique_ptr<FileMapping> mapWhole(const std::string& path) {
  auto file = FileStream::open(path.c_str(), kFileRead);
  return file ? file->mapWhole(kFileSize) : nullptr;
}

// Another program cuts the mapped file short: what it lost reads as zeros, in any thread, and
// the watch of the conversion that mapped it knows.
TEST(MappingFaultWatch, PagesLostByAShortenedFileReadAsZerosAndAreNoticed) {
  test::TempDir dir;
  const std::string path = dir / "in.MF4";
  test::writeFile(path, std::string(kFileSize, 'x'));
  MappingFaultWatch watch;
  auto input = mapWhole(path);
  ASSERT_TRUE(input);
  const std::uint8_t* bytes = input->data();
  ASSERT_EQ(::truncate(path.c_str(), 4096), 0);

  EXPECT_EQ(bytes[100], 'x') << "what the file still holds is kept";
  EXPECT_FALSE(watch.pagesLost());
  std::uint8_t seen_by_thread = 1;
  std::thread reader([&] { seen_by_thread = bytes[10 * 4096]; });
  reader.join();
  EXPECT_EQ(seen_by_thread, 0);
  EXPECT_EQ(bytes[kFileSize - 1], 0);
  EXPECT_TRUE(watch.pagesLost());
}

TEST(MappingFaultWatch, WatchesNestAndEachSeesOnlyItsOwnMappings) {
  test::TempDir dir;
  const std::string path = dir / "in.MF4";
  test::writeFile(path, std::string(kFileSize, 'x'));
  MappingFaultWatch outer;
  {
    MappingFaultWatch inner;
    EXPECT_EQ(MappingFaultWatch::current(), &inner);
    auto input = mapWhole(path);
    ASSERT_EQ(::truncate(path.c_str(), 0), 0);
    EXPECT_EQ(input->data()[5], 0);
    EXPECT_TRUE(inner.pagesLost());
  }
  EXPECT_EQ(MappingFaultWatch::current(), &outer);
  EXPECT_FALSE(outer.pagesLost());
}

TEST(MappingFaultWatchDeathTest, BusErrorsOutsideAWatchStillEndTheProgram) {
  EXPECT_EXIT(
      {
        test::TempDir dir;
        const std::string path = dir / "in.MF4";
        test::writeFile(path, std::string(kFileSize, 'x'));
        { MappingFaultWatch done; }
        auto input = mapWhole(path);
        if (!input || ::truncate(path.c_str(), 0) != 0) std::exit(3);
        volatile std::uint8_t byte = input->data()[5];
        (void)byte;
        std::exit(4);
      },
      ::testing::KilledBySignal(SIGBUS), "");
}

}  // namespace
}  // namespace qm
#endif
