#include "stream/file_stream.h"

#include <algorithm>

#include "platform/system_error.h"

namespace qm {

std::unique_ptr<FileStream> FileStream::open(const char* path, int mode) {
  if (!path || mode < kFileRead || mode > kFileReadWrite) return nullptr;
  std::optional<File> file = File::open(path, mode == kFileWrite ? FileAccess::kWrite : FileAccess::kRead);
  if (!file) return nullptr;
  bool readable = mode != kFileWrite;
  bool writable = mode != kFileRead;
  std::unique_ptr<FileStream> stream(new FileStream(std::move(*file), readable, writable));
  if (!readable) stream->window_ = std::make_unique<WriteWindow>(stream->file_);
  return stream;
}

FileStream::~FileStream() {
  if (file_.isOpen() && window_) flushWindow();
}

bool FileStream::flushWindow() {
  if (!window_failed_ && !window_->flush()) {
    noteError();
    window_failed_ = true;
  }
  return !window_failed_;
}

std::int64_t FileStream::read(void* buffer, std::size_t count) {
  if (!readable_) return kStreamMissingOp;
  if (!file_.isOpen()) return kStreamRefused;
  std::size_t n = file_.read(buffer, count);
  position_ += static_cast<std::int64_t>(n);
  return static_cast<std::int64_t>(n);
}

std::int64_t FileStream::write(const void* buffer, std::size_t count) {
  if (!writable_) return kStreamMissingOp;
  if (!file_.isOpen()) return kStreamRefused;
  if (window_) {
    // After a failure nothing more is written: the file already lacks bytes.
    if (window_failed_) return 0;
    if (!window_->write(static_cast<std::uint64_t>(position_), buffer, count)) {
      noteError();
      window_failed_ = true;
      return 0;
    }
    position_ += static_cast<std::int64_t>(count);
    size_ = std::max(size_, position_);
    return static_cast<std::int64_t>(count);
  }
  std::size_t n = file_.write(buffer, count);
  if (n < count) noteError();
  position_ += static_cast<std::int64_t>(n);
  return static_cast<std::int64_t>(n);
}

std::int64_t FileStream::readAt(std::uint64_t offset, void* buffer, std::size_t count) {
  if (!readable_) return kStreamMissingOp;
  if (!file_.isOpen() || offset > static_cast<std::uint64_t>(INT64_MAX)) return kStreamRefused;
  std::int64_t n = file_.readAt(offset, buffer, count);
  return n < 0 ? kStreamRefused : n;
}

std::int64_t FileStream::tell() {
  if (!file_.isOpen()) return kStreamRefused;
  if (window_) return position_;
  return file_.tell();
}

std::int64_t FileStream::seek(std::int64_t offset, int origin) {
  if (origin == kSeekSet && offset == position_) return offset;
  if (!file_.isOpen()) return kStreamRefused;
  SeekFrom from;
  switch (origin) {
    case kSeekSet: from = SeekFrom::kStart; break;
    case kSeekCur: from = SeekFrom::kCurrent; break;
    case kSeekEnd: from = SeekFrom::kEnd; break;
    default: return kStreamRefused;
  }
  if (window_) return seekInWindow(offset, from);
  std::int64_t target = file_.seek(offset, from);
  if (target < 0) return target;
  position_ = target;
  return position_;
}

std::int64_t FileStream::seekInWindow(std::int64_t offset, SeekFrom from) {
  // Writes go to their places themselves: only the position moves, as a seek of the file would.
  const std::int64_t base = from == SeekFrom::kStart ? 0 : from == SeekFrom::kCurrent ? position_ : size_;
  std::int64_t target;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) {
    setLastSystemError(systemErrorInvalidArgument());
    return -1;
  }
  position_ = target;
  return position_;
}

int FileStream::close() {
  if (!file_.isOpen()) return 0;
  const bool flushed = !window_ || flushWindow();
  window_.reset();
  int status = file_.close() && flushed ? 0 : -1;
  if (status != 0) noteError();
  return status;
}

bool FileStream::syncToDisk(DiskFlush flush) {
  if (!file_.isOpen() || !flush) return false;
  if (window_ && !flushWindow()) return false;
  if (!file_.flush() || !flush(file_.nativeHandle())) {
    noteError();
    return false;
  }
  return true;
}

void FileStream::noteError() {
  if (error_ != 0) return;
  const int reason = lastSystemError();
  error_ = reason != 0 ? reason : systemErrorInputOutput();
}

}  // namespace qm
