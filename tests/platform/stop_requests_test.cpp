#include "platform/stop_requests.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <cstdlib>
#include <cstring>

#include "platform/terminal.h"

namespace qm {
namespace {

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

}  // namespace
}  // namespace qm
