#include "platform/stop_requests.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/terminal.h"

#ifdef _WIN32
#include "tests/support/windows_child.h"
#else
#include <pthread.h>
#include <signal.h>
#endif

namespace qm {
namespace {

#ifndef _WIN32

// One write each, so that it is safe in the stop handler too.
void say(const char* text) { writeOnce(standardErrorHandle(), text, std::strlen(text)); }
void sayHandled() { say("handled\n"); }

// A request raised under nested holds waits until the outermost one ends.
TEST(PosixStopRequestsDeathTest, ARequestHeldBackIsHandledOnceTheOutermostHoldEnds) {
  EXPECT_EXIT(
      {
        ::signal(SIGTERM, SIG_DFL);
        handleStopRequests(sayHandled);
        {
          StopRequestsHeldBack outer;
          {
            StopRequestsHeldBack inner;
            ::raise(SIGTERM);
            say("inner\n");
          }
          say("outer\n");
        }
        std::exit(3);
      },
      ::testing::KilledBySignal(SIGTERM), "inner\nouter\nhandled\n");
}

// A signal the thread held back before the hold stays held back after it; the others go free.
TEST(PosixStopRequestsDeathTest, AHoldReleasesOnlyWhatItHeldBack) {
  EXPECT_EXIT(
      {
        ::signal(SIGTERM, SIG_DFL);
        ::signal(SIGINT, SIG_DFL);
        handleStopRequests(sayHandled);
        sigset_t term;
        sigemptyset(&term);
        sigaddset(&term, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &term, nullptr);
        { StopRequestsHeldBack hold; }
        ::raise(SIGTERM);
        say("still running\n");
        ::raise(SIGINT);
        std::exit(3);
      },
      ::testing::KilledBySignal(SIGINT), "still running\nhandled\n");
}

#else

// The first call takes its time, then leaves a mark; any later one has nothing left to do, as
// the removal of pending outputs has not.
void handleSlowly() {
  static std::atomic<int> calls{0};
  if (calls.fetch_add(1) != 0) return;
  Sleep(500);
  std::ofstream(test::SharedFolder::inChild() + "/handled") << "handled";
}

// Run by the test below, in a console of its own.
TEST(WindowsStopRequests, DISABLED_ChildGetsTwoCtrlBreaks) {
  ASSERT_TRUE(handleStopRequests(handleSlowly));
  test::sendCtrlBreakToThisProcess();
  Sleep(100);
  test::sendCtrlBreakToThisProcess();
  Sleep(30'000);  // the first request ends the program before
}

// Each console event runs the handlers on a new thread: the second one must not end the program
// while the first is still cleaning up. The program then ends as Ctrl-Break ends it.
TEST(WindowsStopRequests, ASecondRequestWaitsForTheHandlerToFinish) {
  test::SharedFolder folder;
  const DWORD status = test::runTestInChild(L"WindowsStopRequests.DISABLED_ChildGetsTwoCtrlBreaks", L"", true);
  if (status == test::kNoConsoleEvents) GTEST_SKIP() << "the system sends no console events here";
  EXPECT_EQ(status, static_cast<DWORD>(STATUS_CONTROL_C_EXIT));
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "handled"));
}

#endif

}  // namespace
}  // namespace qm
