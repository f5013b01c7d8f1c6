#include "output/pending_outputs.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace qm {
namespace {

// More than conversions can run at once; a file that finds no room is left as by a kill -9.
constexpr int kSlotCount = 1024;

// Free -> Creating -> Active -> Free is a file's life. A stop signal turns Active into Removing
// (and removes the file), and Creating into Stopping: the creator, whose thread holds the
// signal back, then removes the file itself and marks the slot Removed. Whichever side changes
// a state first owns the slot.
enum SlotState : int {
  kSlotFree = 0,
  kSlotCreating = 1,
  kSlotActive = 2,
  kSlotRemoving = 3,
  kSlotStopping = 4,
  kSlotRemoved = 5,
};

// Read by the signal handler without a lock: both fields are atomic, and the path is published
// before the state leaves Creating.
struct Slot {
  std::atomic<int> state{kSlotFree};
  std::atomic<const char*> path{nullptr};
};

Slot g_slots[kSlotCount];
// Set by the handler before it looks at any slot: a file not yet begun is then never created.
std::atomic<bool> g_stopping{false};

// SIGPIPE too: it ends the program when the reader of its standard error goes away, as in
// `quillmend ... 2>&1 | head`.
constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
// How long the handler waits for a file being created (a slow network folder, say) to be
// removed by its creator before ending the program anyway.
constexpr long kMostCreatorWaits = 20000;
constexpr timespec kCreatorWait = {0, 100'000};

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal_number : kStopSignals) sigaddset(&set, signal_number);
  return set;
}

[[noreturn]] void waitForTheEnd() {
  for (;;) ::pause();
}

void stopCreator(Slot& slot) {
  int expected = kSlotCreating;
  if (!slot.state.compare_exchange_strong(expected, kSlotStopping)) return;
  for (long waited = 0; waited < kMostCreatorWaits && slot.state.load() != kSlotRemoved; ++waited) {
    ::nanosleep(&kCreatorWait, nullptr);
  }
}

extern "C" void onStopSignal(int signal_number) {
  g_stopping.store(true);
  for (Slot& slot : g_slots) {
    int expected = kSlotActive;
    if (slot.state.compare_exchange_strong(expected, kSlotRemoving)) {
      ::unlink(slot.path.load(std::memory_order_relaxed));
    } else if (expected == kSlotCreating) {
      stopCreator(slot);
    }
  }
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

PendingOutput::StopSignalsHeldBack::StopSignalsHeldBack() {
  const sigset_t stop = stopSignals();
  pthread_sigmask(SIG_BLOCK, &stop, &previous_);
}

PendingOutput::StopSignalsHeldBack::~StopSignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

void PendingOutput::beginCreating() {
  for (int i = 0; i < kSlotCount; ++i) {
    int expected = kSlotFree;
    if (!g_slots[i].state.compare_exchange_strong(expected, kSlotCreating)) continue;
    slot_ = i;
    g_slots[i].path.store(path_.c_str(), std::memory_order_relaxed);
    // Either the handler, which sets the flag before it looks at the slots, sees this slot
    // Creating, or this sees the flag: both orders are sequentially consistent.
    if (!g_stopping.load()) return;
    g_slots[i].state.store(kSlotRemoved);
    waitForTheEnd();
  }
}

void PendingOutput::finishCreating(bool created) {
  if (slot_ < 0) return;
  Slot& slot = g_slots[slot_];
  int expected = kSlotCreating;
  if (slot.state.compare_exchange_strong(expected, created ? kSlotActive : kSlotFree)) {
    if (!created) slot_ = -1;
    return;
  }
  // A stop signal came while the file was being created: its handler waits for it to go.
  if (created) ::unlink(path_.c_str());
  slot.state.store(kSlotRemoved);
  waitForTheEnd();
}

void PendingOutput::forget() {
  if (slot_ < 0) return;
  int expected = kSlotActive;
  if (!g_slots[slot_].state.compare_exchange_strong(expected, kSlotFree)) waitForTheEnd();
  slot_ = -1;
}

void removePendingOutputsOnStopSignals() {
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  // The handler runs once at a time on a thread: another stop signal waits until it is done.
  action.sa_mask = stopSignals();
  for (int signal_number : kStopSignals) {
    if (!ignored(signal_number)) ::sigaction(signal_number, &action, nullptr);
  }
}

}  // namespace qm
