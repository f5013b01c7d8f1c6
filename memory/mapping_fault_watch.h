#pragma once
// A whole-file input is read through a mapping of the file. Should another program shorten the
// file while it is mapped, touching the lost pages faults (SIGBUS), which no read can report. A
// watch turns that fault into something one conversion can fail on: while a watch is the
// current one of the thread that maps a file, the pages the file lost read as zeros instead of
// killing the process, and the watch remembers that the input changed. The conversion then
// discards what it made of those zeros. Faults on mappings made without a watch, and every
// other bus error, end the process as they always would.
#include <atomic>
#include <cstddef>

namespace qm {

class MappingFaultWatch {
 public:
  // Becomes the calling thread's current watch until it is destroyed.
  MappingFaultWatch();
  MappingFaultWatch(const MappingFaultWatch&) = delete;
  MappingFaultWatch& operator=(const MappingFaultWatch&) = delete;
  ~MappingFaultWatch();

  // True once a mapping made under this watch lost pages. Faults may come from any thread that
  // reads the mapping, so this is atomic.
  bool pagesLost() const { return lost_.load(std::memory_order_acquire); }
  // Called from the fault handler (so it only stores an atomic).
  void markPagesLost() { lost_.store(true, std::memory_order_release); }

  // The calling thread's current watch, or null.
  static MappingFaultWatch* current();

 private:
  std::atomic<bool> lost_{false};
  MappingFaultWatch* previous_;
};

// The mappings under watch, as the fault handler sees them. A file mapping registers itself
// when it is made and unregisters before it is unmapped.
class WatchedMappings {
 public:
  // Registers [data, data + size) with the calling thread's current watch. Returns the
  // registration's slot, or -1 when there is no current watch (or no room): the mapping is
  // then not protected.
  static int add(const void* data, std::size_t size);
  static void remove(int slot);
};

}  // namespace qm
