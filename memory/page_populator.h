#pragma once
// Faults in the fresh pages of a buffer that is being written from its start, a little ahead of
// the writer, on a thread of its own. Handing out a fresh page (zeroing it, and on a virtual
// machine often more) can cost as much as writing it; done here, it is off the writer's thread.
// Only pages not yet there are faulted in: the buffer's bytes are never changed.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace qm {

class PagePopulator {
 public:
  // Starts at once; does nothing where no thread can be started or the system cannot do it.
  PagePopulator(std::uint8_t* data, std::uint64_t size);
  // Stops, also when not done, and waits for the thread.
  ~PagePopulator();
  PagePopulator(const PagePopulator&) = delete;
  PagePopulator& operator=(const PagePopulator&) = delete;

  // The writer has written this far: the populator keeps a stretch ahead of it.
  void wrote(std::uint64_t written) { written_.store(written, std::memory_order_relaxed); }

 private:
  static constexpr std::uint64_t kChunk = std::uint64_t{2} << 20;
  // How far ahead grows with what was written, so that a small output, whose size nobody knows
  // in advance, does not get many pages it will never use.
  static constexpr std::uint64_t kLeastAhead = std::uint64_t{4} << 20;
  static constexpr std::uint64_t kMostAhead = std::uint64_t{32} << 20;
  static std::uint64_t aheadOf(std::uint64_t written) {
    std::uint64_t ahead = written / 4;
    return ahead < kLeastAhead ? kLeastAhead : ahead > kMostAhead ? kMostAhead : ahead;
  }

  void populateAhead(std::uint8_t* data, std::uint64_t size);
  bool waitWhileFarAhead(std::uint64_t populated);

  std::atomic<std::uint64_t> written_{0};
  std::mutex mutex_;
  std::condition_variable stop_requested_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace qm
