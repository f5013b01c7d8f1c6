#include "app/conversion_guard.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "stream/buffered_stream.h"
#include "stream/directory_handle.h"
#include "stream/file_stream.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

// Another program shortens the mapped input in the middle of its conversion: the half-written
// output goes, the input stays, and the program ends as a failed conversion.
TEST(ConversionGuardDeathTest, ShortenedMappedInputRemovesTheOutputAndEndsTheRun) {
  test::TempDir dir;
  const std::string input = dir / "in.MF4";
  const std::string output = dir / "in_fin.MF4";
  test::writeFile(input, std::string(3 * 4096, 'x'));
  test::writeFile(output, "half written");
  auto root = DirectoryHandle::create(dir.path().string());
  ASSERT_NE(root, nullptr);

  EXPECT_EXIT(
      {
        ConversionGuard guard("in.MF4");
        ConversionGuard::setOutput(root.get(), "in_fin.MF4");
        auto buffered = BufferedStream::create(FileStream::open(input.c_str(), kFileRead), 3 * 4096);
        if (!buffered || !buffered->contents().inMemory()) std::exit(3);
        if (::truncate(input.c_str(), 0) != 0) std::exit(4);
        char byte;
        buffered->seek(2 * 4096, kSeekSet);
        buffered->read(&byte, 1);
        std::exit(5);  // not reached: the read above faults
      },
      ::testing::ExitedWithCode(1), "Input file changed during conversion: in.MF4");
  EXPECT_FALSE(std::filesystem::exists(output));
  EXPECT_TRUE(std::filesystem::exists(input));
}

TEST(ConversionGuardDeathTest, BusErrorOutsideAConversionIsLeftAlone) {
  EXPECT_EXIT(
      {
        { ConversionGuard guard("done.MF4"); }
        ::raise(SIGBUS);
      },
      ::testing::KilledBySignal(SIGBUS), "");
}

}  // namespace
}  // namespace qm
