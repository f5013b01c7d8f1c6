#include "platform/stop_requests.h"

#include <windows.h>

#include <atomic>

#include "platform/file_system.h"
#include "platform/system_error.h"

namespace qm {
namespace {

std::atomic<StopHandler> g_handler{nullptr};

// The system runs the console's control handlers on a new thread for each event, so a second
// Ctrl-C, or the window closed during the clean-up, would run them again beside the first. The
// first runs the stop handler; the others wait for it to finish, since the program ends as soon
// as any of them has passed the event on.
enum : int { kRunning, kHandling, kHandled };
std::atomic<int> g_stop{kRunning};

BOOL WINAPI onConsoleEvent(DWORD event) {
  // Logging off and shutting down reach services only; an interactive program is gone by then.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT) return FALSE;
  int expected = kRunning;
  if (g_stop.compare_exchange_strong(expected, kHandling)) {
    if (StopHandler handler = g_handler.load()) handler();
    g_stop.store(kHandled);
  } else {
    while (g_stop.load() != kHandled) Sleep(1);
  }
  // Not handled: the system's own handler, last in the list, ends the program as it would have
  // without this one, with the same exit status.
  return FALSE;
}

}  // namespace

bool handleStopRequests(StopHandler handler) {
  g_handler.store(handler);
  // A Ctrl-C the program was started ignoring (start /b, a new process group) reaches no handler:
  // the system keeps it ignored.
  if (!SetConsoleCtrlHandler(onConsoleEvent, TRUE)) {
    setLastSystemError(static_cast<int>(GetLastError()));
    return false;
  }
  return true;
}

// The handler runs on a thread of its own and never interrupts another: there is nothing to
// hold back.
StopRequestsHeldBack::StopRequestsHeldBack() : already_held_(0) {}

StopRequestsHeldBack::~StopRequestsHeldBack() = default;

// On its own thread the handler may call anything another thread may, the heap and locks
// included, so the program's own removal does, with its handling of paths.
bool removeFileWhileStopping(const char* path) { return removeFile(path); }

// Sleep() counts whole milliseconds and may wake a tick (up to 16 ms) late; the short waits of
// a handler polling for another thread yield the processor instead.
void pauseWhileStopping(long microseconds) {
  static const LONGLONG ticks_per_second = [] {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
  }();
  LARGE_INTEGER now{};
  QueryPerformanceCounter(&now);
  const LONGLONG end = now.QuadPart + microseconds * ticks_per_second / 1'000'000;
  for (;;) {
    QueryPerformanceCounter(&now);
    if (now.QuadPart >= end) return;
    const LONGLONG left_ms = (end - now.QuadPart) * 1000 / ticks_per_second;
    if (left_ms > 16) {
      Sleep(static_cast<DWORD>(left_ms - 16));
    } else {
      SwitchToThread();
    }
  }
}

// The handler's thread ends the program once the handler returns, this one with it.
void waitForStopToEndProgram() {
  for (;;) Sleep(INFINITE);
}

// Windows gives a process no limit on the size of the files it writes: a write past what the
// file system holds fails by itself, and there is no signal to turn off.
void failWritesPastFileSizeLimit() {}

}  // namespace qm
