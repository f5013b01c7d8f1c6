#include "platform/stop_requests.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <iterator>

namespace qm {
namespace {

// SIGPIPE too: it ends the program when the reader of its standard error goes away, as in
// `quillmend ... 2>&1 | head`.
constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

// Read by the signal handler, so it must not need a lock.
std::atomic<StopHandler> g_handler{nullptr};
static_assert(std::atomic<StopHandler>::is_always_lock_free);

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal_number : kStopSignals) sigaddset(&set, signal_number);
  return set;
}

extern "C" void onStopSignal(int signal_number) {
  StopHandler handler = g_handler.load();
  if (handler) handler();
  // End as the signal would have ended the program: it is blocked while this runs, so it is
  // taken once this returns.
  ::signal(signal_number, SIG_DFL);
  ::raise(signal_number);
}

bool ignored(int signal_number) {
  struct sigaction current {};
  return ::sigaction(signal_number, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

}  // namespace

bool handleStopRequests(StopHandler handler) {
  g_handler.store(handler);
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  // The handler runs once at a time on a thread: another stop signal waits until it is done.
  action.sa_mask = stopSignals();
  int refused = 0;
  for (int signal_number : kStopSignals) {
    if (!ignored(signal_number) && ::sigaction(signal_number, &action, nullptr) != 0 && refused == 0) refused = errno;
  }
  if (refused != 0) errno = refused;
  return refused == 0;
}

StopRequestsHeldBack::StopRequestsHeldBack() : already_held_(0) {
  const sigset_t stop = stopSignals();
  sigset_t previous;
  pthread_sigmask(SIG_BLOCK, &stop, &previous);
  for (std::size_t i = 0; i < std::size(kStopSignals); ++i) {
    if (sigismember(&previous, kStopSignals[i]) == 1) already_held_ |= 1u << i;
  }
}

StopRequestsHeldBack::~StopRequestsHeldBack() {
  sigset_t release;
  sigemptyset(&release);
  for (std::size_t i = 0; i < std::size(kStopSignals); ++i) {
    if ((already_held_ & (1u << i)) == 0) sigaddset(&release, kStopSignals[i]);
  }
  pthread_sigmask(SIG_UNBLOCK, &release, nullptr);
}

bool removeFileWhileStopping(const char* path) { return ::unlink(path) == 0; }

void pauseWhileStopping(long microseconds) {
  const timespec wait = {microseconds / 1'000'000, microseconds % 1'000'000 * 1000};
  ::nanosleep(&wait, nullptr);
}

void waitForStopToEndProgram() {
  for (;;) ::pause();
}

void failWritesPastFileSizeLimit() { ::signal(SIGXFSZ, SIG_IGN); }

}  // namespace qm
