#include "memory/page_toucher.h"

#include <system_error>

#include "base/spare_processors.h"
#include "memory/speed_helpers.h"
#include "platform/pages.h"

namespace qm {

PageToucher::PageToucher(const std::uint8_t* data, std::uint64_t size) {
  if (!kSpeedHelpers.page_toucher || data == nullptr || size == 0 || !processorToSpare()) return;
  try {
    thread_ = std::thread([this, data, size] { touchAll(data, size); });
  } catch (const std::system_error&) {
    // The reader pays for its pages itself, as without this.
  }
}

PageToucher::~PageToucher() {
  stopping_.store(true, std::memory_order_relaxed);
  if (thread_.joinable()) thread_.join();
}

void PageToucher::touchAll(const std::uint8_t* data, std::uint64_t size) {
  const std::uint64_t page = pageSize();
  std::uint8_t seen = 0;
  for (std::uint64_t at = 0; at < size && !stopping_.load(std::memory_order_relaxed); at += page) {
    seen ^= *static_cast<const volatile std::uint8_t*>(data + at);
  }
  static_cast<void>(seen);
}

}  // namespace qm
