#include "stream/buffered_stream.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>

#include "base/spare_processors.h"
#include "stream/file_stream.h"

namespace qm {

std::unique_ptr<BufferedStream> BufferedStream::create(std::unique_ptr<Stream> inner, std::size_t size,
                                                       std::uint64_t read_whole_limit) {
  if (!inner || size == 0 || size > SIZE_MAX - 7) return nullptr;
  std::size_t capacity = (size + 7) & ~std::size_t{7};
  if (auto* file = dynamic_cast<FileStream*>(inner.get())) {
    std::int64_t file_size = streamSize(file);
    if (file_size > 0 && static_cast<std::uint64_t>(file_size) <= capacity &&
        static_cast<std::uint64_t>(file_size) <= read_whole_limit) {
      return readWholeFile(std::move(inner), static_cast<std::uint64_t>(file_size), capacity);
    }
    if (std::unique_ptr<FileMapping> mapping = file->mapWhole(capacity)) {
      return std::unique_ptr<BufferedStream>(
          new (std::nothrow) BufferedStream(std::move(inner), std::move(mapping), capacity));
    }
  }
  LargeBuffer buffer = allocateZeroed(capacity);
  if (!buffer) return nullptr;
  return std::unique_ptr<BufferedStream>(
      new (std::nothrow) BufferedStream(std::move(inner), std::move(buffer), capacity));
}

std::unique_ptr<BufferedStream> BufferedStream::readWholeFile(std::unique_ptr<Stream> inner, std::uint64_t file_size,
                                                              std::size_t capacity) {
  // The file's bytes are read in; only what lies behind them is zeroed.
  LargeBuffer buffer = allocateUninitialized(capacity);
  if (!buffer) return nullptr;
  std::int64_t read = readInTwoHalves(inner.get(), buffer.get(), file_size);
  if (read < 0) return nullptr;
  std::memset(buffer.get() + read, 0, capacity - static_cast<std::size_t>(read));
  std::unique_ptr<BufferedStream> stream(new (std::nothrow) BufferedStream(std::move(inner), std::move(buffer), capacity));
  if (!stream) return nullptr;
  // A file that shrank meanwhile gives fewer bytes; the caller finds out from the file itself.
  stream->filled_ = static_cast<std::size_t>(read);
  stream->whole_file_ = true;
  return stream;
}

std::int64_t BufferedStream::readInTwoHalves(Stream* file, std::uint8_t* out, std::uint64_t size) {
  // Much of a large read is the kernel handing out fresh pages for the buffer; two threads get
  // them twice as fast. The halves meet at a huge-page boundary.
  constexpr std::uint64_t kSplitAbove = std::uint64_t{16} << 20;
  if (size < kSplitAbove || !processorToSpare()) return file->readAt(0, out, static_cast<std::size_t>(size));
  const std::uint64_t half = (size / 2) & ~(kHugePage - 1);
  std::int64_t second = kStreamRefused;
  std::thread helper;
  try {
    helper = std::thread([&] { second = file->readAt(half, out + half, static_cast<std::size_t>(size - half)); });
  } catch (const std::system_error&) {
    return file->readAt(0, out, static_cast<std::size_t>(size));
  }
  std::int64_t first = file->readAt(0, out, static_cast<std::size_t>(half));
  helper.join();
  if (first < 0 || second < 0) return kStreamRefused;
  // Bytes after a gap are no use: a short first half ends the file there.
  if (static_cast<std::uint64_t>(first) < half) return first;
  return first + second;
}

BufferedStream::BufferedStream(std::unique_ptr<Stream> inner, std::unique_ptr<FileMapping> mapping,
                               std::size_t capacity)
    : inner_(std::move(inner)),
      mapping_(std::move(mapping)),
      bytes_(mapping_->data()),
      capacity_(capacity),
      filled_(static_cast<std::size_t>(mapping_->size())),
      whole_file_(true) {
  toucher_ = std::make_unique<PageToucher>(mapping_->data(), mapping_->size());
}

ByteView BufferedStream::contents() {
  if (!whole_file_) return {};
  return {bytes_, filled_};
}

bool BufferedStream::refill(std::int64_t offset) {
  // A whole file already shows everything it holds.
  if (whole_file_) return false;
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
    std::memcpy(out + done, bytes_ + position_, n);
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
  if (!refill(target) && !whole_file_ && inner_ && target == inner_->seek(0, kSeekEnd)) {
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
  toucher_.reset();
  mapping_.reset();
  bytes_ = nullptr;
  capacity_ = filled_ = position_ = 0;
  return 0;
}

}  // namespace qm
