#include "stream/slice_stream.h"

namespace qm {
namespace {

// Offsets may come from a file; an overflowing sum is refused rather than wrapped.
bool addOffsets(std::int64_t a, std::int64_t b, std::int64_t* sum) {
  return !__builtin_add_overflow(a, b, sum);
}

}  // namespace

std::unique_ptr<SliceStream> SliceStream::open(std::unique_ptr<Stream> inner, std::int64_t start,
                                               std::int64_t end) {
  if (!inner || start < 0) return nullptr;
  inner->seek(start, kSeekSet);
  return std::unique_ptr<SliceStream>(new SliceStream(std::move(inner), start, end));
}

std::size_t SliceStream::limitCount(std::size_t count) {
  if (!bounded()) return count;
  std::int64_t left;
  if (!addOffsets(start_, end_, &left) || __builtin_sub_overflow(left, inner_->tell(), &left)) {
    return 0;
  }
  if (left <= 0) return 0;
  return static_cast<std::uint64_t>(left) < count ? static_cast<std::size_t>(left) : count;
}

std::int64_t SliceStream::read(void* buffer, std::size_t count) {
  if (!inner_) return kStreamRefused;
  return inner_->read(buffer, limitCount(count));
}

std::int64_t SliceStream::write(const void* buffer, std::size_t count) {
  if (!inner_) return kStreamRefused;
  return inner_->write(buffer, limitCount(count));
}

std::int64_t SliceStream::tell() {
  if (!inner_) return kStreamRefused;
  std::int64_t inner_position = inner_->tell();
  if (inner_position < 0) return kStreamRefused;
  std::int64_t position = inner_position - start_;
  if (bounded() && position > end_ - start_) return kStreamRefused;
  return position;
}

std::int64_t SliceStream::seek(std::int64_t offset, int origin) {
  if (!inner_) return kStreamRefused;
  std::int64_t base;
  switch (origin) {
    case kSeekSet:
      base = start_;
      break;
    case kSeekCur:
      base = inner_->tell();
      if (base < 0) return kStreamRefused;
      break;
    case kSeekEnd:
      base = bounded() ? end_ : streamSize(inner_.get());
      break;
    default:
      return kStreamRefused;
  }
  std::int64_t target;
  if (!addOffsets(base, offset, &target)) return kStreamRefused;
  if (bounded() && target > end_) target = end_;
  if (target < start_) target = start_;
  if (target < 0) return kStreamRefused;
  if (inner_->seek(target, kSeekSet) != target) return kStreamRefused;
  return target - start_;
}

int SliceStream::close() {
  int status = streamClose(inner_.get());
  inner_.reset();
  return status;
}

}  // namespace qm
