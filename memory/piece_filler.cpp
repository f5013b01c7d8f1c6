#include "memory/piece_filler.h"

#include <algorithm>
#include <system_error>

#include "base/spare_processors.h"
#include "memory/speed_helpers.h"

namespace qm {

PieceFiller::PieceFiller(std::uint64_t size, std::size_t piece, Fill fill)
    : size_(size), piece_(piece == 0 ? 1 : piece), fill_(std::move(fill)) {
  // A single piece gains nothing from a second thread.
  if (!kSpeedHelpers.piece_filler || size_ <= piece_ || !processorToSpare()) return;
  try {
    thread_ = std::thread([this] { fillAll(); });
  } catch (const std::system_error&) {
    // Filled on the caller's thread instead.
  }
}

PieceFiller::~PieceFiller() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void PieceFiller::fillAll() {
  for (std::uint64_t at = 0; at < size_;) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      // A few pieces beyond what the caller is done with, and at least what it waits for.
      changed_.wait(lock, [&] { return stopping_ || at < std::max(done_with_ + kPiecesAhead * piece_, asked_); });
      if (stopping_) return;
    }
    std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(piece_, size_ - at));
    bool ok = fill_(at, count);
    at += count;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (ok) filled_ = at;
      if (!ok) failed_ = true;
    }
    changed_.notify_all();
    if (!ok) return;
  }
}

bool PieceFiller::fillInline(std::uint64_t end) {
  while (filled_ < end) {
    std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(piece_, size_ - filled_));
    if (count == 0 || !fill_(filled_, count)) return false;
    filled_ += count;
  }
  return true;
}

bool PieceFiller::waitUntil(std::uint64_t end) {
  end = std::min(end, size_);
  if (!thread_.joinable()) return fillInline(end);
  std::unique_lock<std::mutex> lock(mutex_);
  done_with_ = asked_;  // the caller is done with what it asked for before
  asked_ = end;
  changed_.notify_all();
  changed_.wait(lock, [&] { return filled_ >= end || failed_; });
  return filled_ >= end;
}

}  // namespace qm
