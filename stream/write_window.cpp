#include "stream/write_window.h"

#include <algorithm>
#include <cstring>

namespace qm {

bool WriteWindow::write(std::uint64_t offset, const void* bytes, std::size_t count) {
  if (count == 0) return true;
  const auto* from = static_cast<const std::uint8_t*>(bytes);
  // What is held goes first, so that a later write over the same bytes wins.
  if (count >= kDirect) return flush() && writeThrough(offset, from, count);
  if (!fits(offset, count)) {
    if (!flush()) return false;
    moveTo(offset, count);
  }
  if (!bytes_) bytes_ = std::make_unique_for_overwrite<std::uint8_t[]>(kSize);  // gaps are zeroed when filled
  std::memcpy(bytes_.get() + (offset - base_), from, count);
  hold(offset, offset + count);
  return held_.size() <= kMostRanges || flush();
}

bool WriteWindow::fits(std::uint64_t offset, std::size_t count) const {
  return offset >= base_ && offset - base_ <= kSize - count;
}

void WriteWindow::moveTo(std::uint64_t offset, std::size_t count) {
  // Aligned, so that writes on either side of the place keep landing in one window; where the
  // bytes would cross its end, the window starts at them instead.
  base_ = offset - offset % kSize;
  if (!fits(offset, count)) base_ = offset;
}

void WriteWindow::hold(std::uint64_t begin, std::uint64_t end) {
  // The first range that does not end before `begin`; it and those after it that start no later
  // than `end` merge with the new one.
  auto first = std::lower_bound(held_.begin(), held_.end(), begin,
                                [](const auto& range, std::uint64_t at) { return range.second < at; });
  auto last = first;
  while (last != held_.end() && last->first <= end) {
    begin = std::min(begin, last->first);
    end = std::max(end, last->second);
    ++last;
  }
  first = held_.erase(first, last);
  held_.insert(first, {begin, end});
}

bool WriteWindow::flush() {
  bool written = true;
  for (std::size_t next = 0; next < held_.size() && written;) {
    const std::uint64_t begin = held_[next].first;
    std::uint64_t end = held_[next].second;
    for (++next; next < held_.size() && end >= file_end_ && held_[next].first - end <= kLongestGapFilled; ++next) {
      std::memset(bytes_.get() + (end - base_), 0, static_cast<std::size_t>(held_[next].first - end));
      end = held_[next].second;
    }
    written = writeThrough(begin, bytes_.get() + (begin - base_), static_cast<std::size_t>(end - begin));
  }
  held_.clear();
  return written;
}

bool WriteWindow::writeThrough(std::uint64_t offset, const std::uint8_t* bytes, std::size_t count) {
  if (!file_.writeAt(offset, bytes, count)) return false;
  file_end_ = std::max(file_end_, offset + count);
  return true;
}

}  // namespace qm
