#include "stream/memory_stream.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace qm {

std::int64_t MemoryStream::read(void* buffer, std::size_t count) {
  // A position past the size (reachable by a seek within the capacity) reads nothing.
  if (position_ >= size_) return 0;
  std::uint64_t n = size_ - position_ < count ? size_ - position_ : count;
  std::memcpy(buffer, data_ + position_, n);
  position_ += n;
  return static_cast<std::int64_t>(n);
}

bool MemoryStream::reserve(std::uint64_t n) {
  if (capacity_ - position_ >= n && capacity_ >= position_) return true;
  // Doubling towards a request this large would overflow before it sufficed.
  if (n > (UINT64_MAX >> 2) - position_) return false;
  std::uint64_t capacity = capacity_ ? capacity_ : 2;
  while (capacity < position_ || capacity - position_ < n) capacity *= 2;
  if (capacity > SIZE_MAX || !growLargeBuffer(buffer_, static_cast<std::size_t>(capacity))) return false;
  data_ = buffer_.get();
  capacity_ = capacity;
  return true;
}

std::int64_t MemoryStream::writeSlow(const void* buffer, std::size_t count) {
  if (!reserve(count)) return kStreamRefused;
  if (count) std::memcpy(data_ + position_, buffer, count);
  position_ += count;
  if (position_ > size_) size_ = position_;
  return static_cast<std::int64_t>(count);
}

std::int64_t MemoryStream::seek(std::int64_t offset, int origin) {
  std::uint64_t target;
  switch (origin) {
    case kSeekSet:
      target = static_cast<std::uint64_t>(offset);
      break;
    case kSeekCur:
      target = position_ + static_cast<std::uint64_t>(offset);
      break;
    case kSeekEnd: {
      std::uint64_t back = static_cast<std::uint64_t>(offset);
      target = size_ - (back < size_ ? back : size_);
      break;
    }
    default:
      return kStreamRefused;
  }
  if (target > capacity_ || static_cast<std::int64_t>(target) < 0) return kStreamRefused;
  position_ = target;
  return static_cast<std::int64_t>(target);
}

void MemoryStream::adopt(LargeBuffer buffer, std::uint64_t size, std::uint64_t capacity) {
  buffer_ = std::move(buffer);
  data_ = buffer_.get();
  capacity_ = data_ ? capacity : 0;
  size_ = position_ = data_ ? size : 0;
}

int MemoryStream::close() {
  buffer_.reset();
  data_ = nullptr;
  capacity_ = size_ = position_ = 0;
  return 0;
}

}  // namespace qm
