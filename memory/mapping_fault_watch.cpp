#include "memory/mapping_fault_watch.h"

#include <cstdint>
#include <mutex>

#include "platform/lost_pages.h"

namespace qm {
namespace {

// More mappings than conversions can run at once; a registration that finds no room simply
// goes unprotected.
constexpr int kSlotCount = 1024;

enum SlotState : int { kSlotFree = 0, kSlotClaimed = 1, kSlotActive = 2 };

// Read inside the fault without a lock: every field is atomic, and a slot's range and
// watch are published before its state turns active.
struct Slot {
  std::atomic<int> state{kSlotFree};
  std::atomic<std::uintptr_t> start{0};
  std::atomic<std::uintptr_t> end{0};
  std::atomic<MappingFaultWatch*> watch{nullptr};
};

Slot g_slots[kSlotCount];
thread_local MappingFaultWatch* t_current_watch = nullptr;

bool onLostPages(std::uintptr_t address) {
  for (Slot& slot : g_slots) {
    if (slot.state.load(std::memory_order_acquire) != kSlotActive) continue;
    std::uintptr_t start = slot.start.load(std::memory_order_relaxed);
    std::uintptr_t end = slot.end.load(std::memory_order_relaxed);
    if (address < start || address >= end) continue;
    // Everything from the faulting page on is gone from the file: zero pages stand in for it,
    // so the reading code runs to its end and the conversion can fail cleanly afterwards.
    if (!replaceLostPages(address, end)) return false;
    slot.watch.load(std::memory_order_relaxed)->markPagesLost();
    return true;
  }
  // Not a watched mapping.
  return false;
}

void installHandler() { handleLostPages(onLostPages); }

}  // namespace

MappingFaultWatch::MappingFaultWatch() : previous_(t_current_watch) {
  static std::once_flag installed;
  std::call_once(installed, installHandler);
  t_current_watch = this;
}

MappingFaultWatch::~MappingFaultWatch() { t_current_watch = previous_; }

MappingFaultWatch* MappingFaultWatch::current() { return t_current_watch; }

int WatchedMappings::add(const void* data, std::size_t size) {
  MappingFaultWatch* watch = t_current_watch;
  if (watch == nullptr || data == nullptr || size == 0) return -1;
  for (int i = 0; i < kSlotCount; ++i) {
    int expected = kSlotFree;
    if (!g_slots[i].state.compare_exchange_strong(expected, kSlotClaimed, std::memory_order_acq_rel)) continue;
    auto start = reinterpret_cast<std::uintptr_t>(data);
    g_slots[i].start.store(start, std::memory_order_relaxed);
    g_slots[i].end.store(start + size, std::memory_order_relaxed);
    g_slots[i].watch.store(watch, std::memory_order_relaxed);
    g_slots[i].state.store(kSlotActive, std::memory_order_release);
    return i;
  }
  return -1;
}

void WatchedMappings::remove(int slot) {
  if (slot < 0 || slot >= kSlotCount) return;
  g_slots[slot].state.store(kSlotFree, std::memory_order_release);
}

}  // namespace qm
