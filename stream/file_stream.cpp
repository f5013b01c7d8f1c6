#include "stream/file_stream.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

namespace qm {

std::unique_ptr<FileStream> FileStream::open(const char* path, int mode) {
  static constexpr const char* kModeTexts[] = {"rb", "wb", "rwb"};
  if (!path || mode < kFileRead || mode > kFileReadWrite) return nullptr;
  std::FILE* file = std::fopen(path, kModeTexts[mode]);
  if (!file) return nullptr;
  bool readable = mode != kFileWrite;
  bool writable = mode != kFileRead;
  return std::unique_ptr<FileStream>(new FileStream(file, readable, writable));
}

FileStream::~FileStream() {
  if (file_) std::fclose(file_);
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
  int failed = fseeko(file_, static_cast<off_t>(offset), whence);
  if (failed) return failed;
  position_ = static_cast<std::int64_t>(ftello(file_));
  return position_;
}

int FileStream::close() {
  if (!file_) return 0;
  int status = std::fclose(file_);
  if (status != 0) noteError();
  file_ = nullptr;
  return status;
}

bool FileStream::syncToDisk(int (*sync_file)(int descriptor)) {
  if (!file_ || !sync_file) return false;
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
