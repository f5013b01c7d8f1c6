#include "memory/page_populator.h"

#include <chrono>
#include <system_error>

#include "base/spare_processors.h"
#include "memory/speed_helpers.h"
#include "platform/pages.h"

namespace qm {
namespace {
constexpr auto kPoll = std::chrono::microseconds(200);
}

PagePopulator::PagePopulator(std::uint8_t* data, std::uint64_t size) {
  if (!kSpeedHelpers.page_populator || data == nullptr || size < 2 * kChunk || !processorToSpare()) return;
  try {
    thread_ = std::thread([this, data, size] { populateAhead(data, size); });
  } catch (const std::system_error&) {
    // The writer faults its pages in itself, as without this.
  }
}

PagePopulator::~PagePopulator() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  stop_requested_.notify_all();
  if (thread_.joinable()) thread_.join();
}

// True to go on populating, false once asked to stop.
bool PagePopulator::waitWhileFarAhead(std::uint64_t populated) {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    std::uint64_t written = written_.load(std::memory_order_relaxed);
    if (stopping_ || populated < written + aheadOf(written)) break;
    stop_requested_.wait_for(lock, kPoll);
  }
  return !stopping_;
}

void PagePopulator::populateAhead(std::uint8_t* data, std::uint64_t size) {
  // Whole pages only, from the first huge-page boundary inside the buffer.
  auto start = reinterpret_cast<std::uintptr_t>(data);
  std::uintptr_t first = (start + kChunk - 1) & ~static_cast<std::uintptr_t>(kChunk - 1);
  std::uintptr_t end = (start + size) & ~static_cast<std::uintptr_t>(kChunk - 1);
  for (std::uintptr_t at = first; at < end; at += kChunk) {
    if (!waitWhileFarAhead(at - start)) return;
    // Failing (an old kernel, no memory) only leaves the faults to the writer.
    if (!populatePagesForWriting(reinterpret_cast<void*>(at), kChunk)) return;
  }
}

}  // namespace qm
