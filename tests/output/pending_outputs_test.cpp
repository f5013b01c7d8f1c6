#include "output/pending_outputs.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/temp_dir.h"

namespace qm {
namespace {

namespace fs = std::filesystem;

bool createFile(const PendingOutput& output) {
  test::writeFile(output.path().c_str(), "bytes");
  return true;
}

class PendingOutputsDeathTest : public ::testing::TestWithParam<int> {
 protected:
  test::TempDir dir_;
};

TEST_P(PendingOutputsDeathTest, AStopSignalRemovesThePendingFilesAndStillEndsTheProgram) {
  const int stop = GetParam();
  EXPECT_EXIT(
      {
        ::signal(stop, SIG_DFL);  // as a program started from a terminal gets it
        removePendingOutputsOnStopRequests();
        PendingOutput a(dir_ / "a.partial");
        PendingOutput b(dir_ / "b.partial");
        PendingOutput done(dir_ / "done.partial");
        for (PendingOutput* output : {&a, &b, &done}) output->create([&] { return createFile(*output); });
        done.forget();
        ::raise(stop);
        std::exit(3);
      },
      ::testing::KilledBySignal(stop), "");
  EXPECT_FALSE(fs::exists(dir_ / "a.partial"));
  EXPECT_FALSE(fs::exists(dir_ / "b.partial"));
  EXPECT_TRUE(fs::exists(dir_ / "done.partial")) << "a forgotten file is about to get its final name";
}

TEST_P(PendingOutputsDeathTest, AStopSignalThatWasIgnoredStaysIgnored) {
  const int stop = GetParam();
  EXPECT_EXIT(
      {
        ::signal(stop, SIG_IGN);  // as under nohup, or in a background job of a script
        removePendingOutputsOnStopRequests();
        PendingOutput a(dir_ / "a.partial");
        a.create([&] { return createFile(a); });
        ::raise(stop);
        std::exit(3);
      },
      ::testing::ExitedWithCode(3), "");
  EXPECT_TRUE(fs::exists(dir_ / "a.partial"));
}

// The signal comes while another thread is still creating its file: the file is there, but not
// yet noted. The handler waits for the creation to end, and the file goes all the same.
TEST(PendingOutputsDeathTestWhileCreating, AFileBeingCreatedGoesToo) {
  test::TempDir dir;
  const std::string path = dir / "slow.partial";
  EXPECT_EXIT(
      {
        removePendingOutputsOnStopRequests();
        std::atomic<bool> file_there{false};
        std::thread creator([&] {
          PendingOutput slow(path);
          slow.create([&] {
            createFile(slow);
            file_there = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            return true;
          });
          std::exit(4);  // never reached: the program ends of the signal first
        });
        while (!file_there) std::this_thread::yield();
        ::raise(SIGTERM);
        creator.join();
        std::exit(3);
      },
      ::testing::KilledBySignal(SIGTERM), "");
  EXPECT_FALSE(fs::exists(path));
}

INSTANTIATE_TEST_SUITE_P(StopSignals, PendingOutputsDeathTest, ::testing::Values(SIGINT, SIGTERM, SIGHUP, SIGPIPE));

}  // namespace
}  // namespace qm
