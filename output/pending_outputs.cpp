#include "output/pending_outputs.h"

#include <atomic>

namespace qm {
namespace {

// More than conversions can run at once; a file that finds no room is left as by a kill -9.
constexpr int kSlotCount = 1024;

// Free -> Creating -> Active -> Free is a file's life. A stop request turns Active into Removing
// (and removes the file), and Creating into Stopping: the creator, whose thread holds the
// request back, then removes the file itself and marks the slot Removed. Whichever side changes
// a state first owns the slot.
enum SlotState : int {
  kSlotFree = 0,
  kSlotCreating = 1,
  kSlotActive = 2,
  kSlotRemoving = 3,
  kSlotStopping = 4,
  kSlotRemoved = 5,
};

// Read by the stop handler without a lock: both fields are atomic, and the path is published
// before the state leaves Creating.
struct Slot {
  std::atomic<int> state{kSlotFree};
  std::atomic<const char*> path{nullptr};
};

Slot g_slots[kSlotCount];
// Set by the handler before it looks at any slot: a file not yet begun is then never created.
std::atomic<bool> g_stopping{false};

// How long the handler waits for a file being created (a slow network folder, say) to be
// removed by its creator before ending the program anyway: about 2 seconds.
constexpr long kMostCreatorWaits = 20000;
constexpr long kCreatorWaitMicroseconds = 100;

void stopCreator(Slot& slot) {
  int expected = kSlotCreating;
  if (!slot.state.compare_exchange_strong(expected, kSlotStopping)) return;
  for (long waited = 0; waited < kMostCreatorWaits && slot.state.load() != kSlotRemoved; ++waited) {
    pauseWhileStopping(kCreatorWaitMicroseconds);
  }
}

// The stop handler: atomics and the calls safe in a stop handler only. The program ends of the
// request once this returns.
void removeOnStop() {
  g_stopping.store(true);
  for (Slot& slot : g_slots) {
    int expected = kSlotActive;
    if (slot.state.compare_exchange_strong(expected, kSlotRemoving)) {
      removeFileWhileStopping(slot.path.load(std::memory_order_relaxed));
    } else if (expected == kSlotCreating) {
      stopCreator(slot);
    }
  }
}

}  // namespace

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
    waitForStopToEndProgram();
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
  // A stop request came while the file was being created: its handler waits for it to go.
  if (created) removeFileWhileStopping(path_.c_str());
  slot.state.store(kSlotRemoved);
  waitForStopToEndProgram();
}

void PendingOutput::forget() {
  if (slot_ < 0) return;
  int expected = kSlotActive;
  if (!g_slots[slot_].state.compare_exchange_strong(expected, kSlotFree)) waitForStopToEndProgram();
  slot_ = -1;
}

void removePendingOutputsOnStopRequests() {
  // Should the system refuse one request, the others still remove the outputs.
  handleStopRequests(removeOnStop);
}

}  // namespace qm
