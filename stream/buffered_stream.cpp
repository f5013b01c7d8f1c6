#include "stream/buffered_stream.h"

#include <algorithm>
#include <new>

namespace qm {

std::unique_ptr<BufferedStream> BufferedStream::create(std::unique_ptr<Stream> inner, std::size_t size) {
  if (!inner || size == 0 || size > SIZE_MAX - 7) return nullptr;
  std::size_t capacity = (size + 7) & ~std::size_t{7};
  LargeBuffer buffer = allocateZeroed(capacity);
  if (!buffer) return nullptr;
  return std::unique_ptr<BufferedStream>(
      new (std::nothrow) BufferedStream(std::move(inner), std::move(buffer), capacity));
}

bool BufferedStream::refill(std::int64_t offset) {
  if (!inner_ || inner_->seek(offset, kSeekSet) != offset) return false;
  std::int64_t n = inner_->read(buffer_.get(), capacity_);
  if (n < 1) return false;
  filled_ = static_cast<std::size_t>(n);
  buffer_start_ = offset;
  position_ = 0;
  return true;
}

std::int64_t BufferedStream::readSlow(std::uint8_t* out, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    if (position_ == filled_ && !refill(tell())) break;
    std::size_t n = std::min(filled_ - position_, count - done);
    std::memcpy(out + done, buffer_.get() + position_, n);
    position_ += n;
    done += n;
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t BufferedStream::seek(std::int64_t offset, int origin) {
  std::int64_t target;
  switch (origin) {
    case kSeekSet:
      target = offset;
      break;
    case kSeekCur:
      if (__builtin_add_overflow(tell(), offset, &target)) return tell();
      break;
    case kSeekEnd:
      if (!inner_) return kStreamRefused;
      inner_->seek(offset, kSeekEnd);
      target = inner_->tell();
      break;
    default:
      return kStreamRefused;
  }
  if (target >= buffer_start_ && target - buffer_start_ <= static_cast<std::int64_t>(filled_)) {
    position_ = static_cast<std::size_t>(target - buffer_start_);
    return target;
  }
  if (!refill(target) && inner_ && target == inner_->seek(0, kSeekEnd)) {
    // The very end holds nothing to read, yet it is a position like any other: size
    // measurements seek there. Only a target beyond it keeps the previous position.
    buffer_start_ = target;
    filled_ = position_ = 0;
    return target;
  }
  return tell();
}

int BufferedStream::close() {
  if (!inner_) return -1;
  int status = inner_->close();
  if (status != 0) return status;
  inner_.reset();
  buffer_.reset();
  capacity_ = filled_ = position_ = 0;
  return 0;
}

}  // namespace qm
