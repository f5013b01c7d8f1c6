#include "stream/file_stream.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qm {

std::unique_ptr<FileStream> FileStream::open(const char* path, int mode) {
  static constexpr const char* kModeTexts[] = {"rb", "wb", "rwb"};
  if (!path || mode < kFileRead || mode > kFileReadWrite) return nullptr;
  std::FILE* file = std::fopen(path, kModeTexts[mode]);
  if (!file) return nullptr;
  bool readable = mode != kFileWrite;
  bool writable = mode != kFileRead;
  std::unique_ptr<FileStream> stream(new FileStream(file, readable, writable));
  if (!readable) stream->window_ = std::make_unique<WriteWindow>(fileno(file));
  return stream;
}

FileStream::~FileStream() {
  if (!file_) return;
  if (window_) flushWindow();
  std::fclose(file_);
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
  if (!file_) return kStreamRefused;
  std::size_t n = std::fread(buffer, 1, count, file_);
  position_ += static_cast<std::int64_t>(n);
  return static_cast<std::int64_t>(n);
}

std::int64_t FileStream::write(const void* buffer, std::size_t count) {
  if (!writable_) return kStreamMissingOp;
  if (!file_) return kStreamRefused;
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
  std::size_t n = std::fwrite(buffer, 1, count, file_);
  if (n < count) noteError();
  position_ += static_cast<std::int64_t>(n);
  return static_cast<std::int64_t>(n);
}

std::int64_t FileStream::readAt(std::uint64_t offset, void* buffer, std::size_t count) {
  if (!readable_) return kStreamMissingOp;
  if (!file_ || offset > static_cast<std::uint64_t>(INT64_MAX)) return kStreamRefused;
  auto* out = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  while (done < count) {
    ssize_t n = pread(fileno(file_), out + done, count - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return done ? static_cast<std::int64_t>(done) : kStreamRefused;
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t FileStream::tell() {
  if (!file_) return kStreamRefused;
  if (window_) return position_;
  return static_cast<std::int64_t>(ftello(file_));
}

std::int64_t FileStream::seek(std::int64_t offset, int origin) {
  if (origin == kSeekSet && offset == position_) return offset;
  if (!file_) return kStreamRefused;
  int whence;
  switch (origin) {
    case kSeekSet: whence = SEEK_SET; break;
    case kSeekCur: whence = SEEK_CUR; break;
    case kSeekEnd: whence = SEEK_END; break;
    default: return kStreamRefused;
  }
  if (window_) return seekInWindow(offset, whence);
  int failed = fseeko(file_, static_cast<off_t>(offset), whence);
  if (failed) return failed;
  position_ = static_cast<std::int64_t>(ftello(file_));
  return position_;
}

std::int64_t FileStream::seekInWindow(std::int64_t offset, int whence) {
  // Writes go to their places themselves: only the position moves, as fseeko would move it.
  const std::int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? position_ : size_;
  std::int64_t target;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) {
    errno = EINVAL;
    return -1;
  }
  position_ = target;
  return position_;
}

int FileStream::close() {
  if (!file_) return 0;
  const bool flushed = !window_ || flushWindow();
  window_.reset();
  int status = std::fclose(file_);
  if (status == 0 && !flushed) status = EOF;
  if (status != 0) noteError();
  file_ = nullptr;
  return status;
}

bool FileStream::syncToDisk(int (*sync_file)(int descriptor)) {
  if (!file_ || !sync_file) return false;
  if (window_ && !flushWindow()) return false;
  if (std::fflush(file_) != 0 || sync_file(fileno(file_)) != 0) {
    noteError();
    return false;
  }
  return true;
}

void FileStream::noteError() {
  if (error_ == 0) error_ = errno != 0 ? errno : EIO;
}

}  // namespace qm
