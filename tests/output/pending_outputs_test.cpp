#include "output/pending_outputs.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#ifdef _WIN32
#include "tests/support/windows_child.h"
#else
#include <signal.h>
#include <unistd.h>

#include "tests/support/temp_dir.h"
#endif

namespace qm {
namespace {

namespace fs = std::filesystem;

bool createFile(const PendingOutput& output) {
  std::ofstream(output.path().c_str(), std::ios::binary) << "bytes";
  return true;
}

#ifndef _WIN32

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

#else

// Run by the test below, in a console of its own.
TEST(WindowsPendingOutputs, DISABLED_ChildGetsCtrlBreakWhileWriting) {
  const std::string folder = test::SharedFolder::inChild();
  removePendingOutputsOnStopRequests();
  PendingOutput a(folder + "/a.partial");
  PendingOutput b(folder + "/b.partial");
  PendingOutput done(folder + "/done.partial");
  for (PendingOutput* output : {&a, &b, &done}) output->create([&] { return createFile(*output); });
  done.forget();
  test::sendCtrlBreakToThisProcess();
  Sleep(30'000);  // the request ends the program before
}

TEST(WindowsPendingOutputs, ACtrlBreakRemovesThePendingFilesAndStillEndsTheProgram) {
  test::SharedFolder folder;
  const DWORD status = test::runTestInChild(L"WindowsPendingOutputs.DISABLED_ChildGetsCtrlBreakWhileWriting", L"", true);
  if (status == test::kNoConsoleEvents) GTEST_SKIP() << "the system sends no console events here";
  EXPECT_EQ(status, static_cast<DWORD>(STATUS_CONTROL_C_EXIT));
  EXPECT_FALSE(fs::exists(folder.path() / "a.partial"));
  EXPECT_FALSE(fs::exists(folder.path() / "b.partial"));
  EXPECT_TRUE(fs::exists(folder.path() / "done.partial")) << "a forgotten file is about to get its final name";
}

#endif

}  // namespace
}  // namespace qm
