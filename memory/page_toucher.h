#pragma once
// Touches one byte of every page of a range, on a thread of its own. On some virtual machines
// the first access to each page of a fresh mapping costs far more than the access itself, even
// when the mapping was populated; paid here, that cost is off the thread that reads the range.
// Elsewhere it is a quick pass on another processor.
#include <atomic>
#include <cstdint>
#include <thread>

namespace qm {

class PageToucher {
 public:
  // Starts touching at once; does nothing when no thread can be started.
  PageToucher(const std::uint8_t* data, std::uint64_t size);
  // Stops touching, also when not done, and waits for the thread.
  ~PageToucher();
  PageToucher(const PageToucher&) = delete;
  PageToucher& operator=(const PageToucher&) = delete;

 private:
  void touchAll(const std::uint8_t* data, std::uint64_t size);

  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace qm
