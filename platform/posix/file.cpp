#include "platform/file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/posix/path_facts.h"

namespace qm {
namespace {

std::FILE* streamOf(std::intptr_t stream) { return reinterpret_cast<std::FILE*>(stream); }

}  // namespace

bool flushToDisk(NativeHandle handle) { return ::fsync(static_cast<int>(handle)) == 0; }

std::optional<File> File::open(const char* path, FileAccess access) {
  std::FILE* stream = std::fopen(path, access == FileAccess::kWrite ? "wb" : "rb");
  if (!stream) return std::nullopt;
  return File(reinterpret_cast<std::intptr_t>(stream));
}

File& File::operator=(File&& other) noexcept {
  if (this != &other) {
    close();
    stream_ = other.stream_;
    other.stream_ = 0;
  }
  return *this;
}

File::~File() { close(); }

std::size_t File::read(void* buffer, std::size_t count) { return std::fread(buffer, 1, count, streamOf(stream_)); }

std::size_t File::write(const void* bytes, std::size_t count) {
  return std::fwrite(bytes, 1, count, streamOf(stream_));
}

std::int64_t File::seek(std::int64_t offset, SeekFrom from) {
  const int whence = from == SeekFrom::kStart ? SEEK_SET : from == SeekFrom::kCurrent ? SEEK_CUR : SEEK_END;
  if (fseeko(streamOf(stream_), static_cast<off_t>(offset), whence) != 0) return -1;
  return tell();
}

std::int64_t File::tell() { return static_cast<std::int64_t>(ftello(streamOf(stream_))); }

std::int64_t File::readAt(std::uint64_t offset, void* buffer, std::size_t count) const {
  auto* out = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  while (done < count) {
    ssize_t n = ::pread(fileno(streamOf(stream_)), out + done, count - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return done ? static_cast<std::int64_t>(done) : -1;
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

bool File::writeAt(std::uint64_t offset, const void* bytes, std::size_t count) {
  const auto* from = static_cast<const std::uint8_t*>(bytes);
  while (count > 0) {
    ssize_t n = ::pwrite(fileno(streamOf(stream_)), from, count, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      return false;
    }
    from += n;
    offset += static_cast<std::uint64_t>(n);
    count -= static_cast<std::size_t>(n);
  }
  return true;
}

bool File::flush() { return std::fflush(streamOf(stream_)) == 0; }

bool File::facts(PathFacts* facts) const {
  struct stat info;
  if (::fstat(fileno(streamOf(stream_)), &info) != 0) return false;
  *facts = pathFactsOf(info);
  return true;
}

NativeHandle File::nativeHandle() const { return fileno(streamOf(stream_)); }

bool File::close() {
  if (stream_ == 0) return true;
  // The stream is gone even when closing it fails.
  const bool closed = std::fclose(streamOf(stream_)) == 0;
  stream_ = 0;
  return closed;
}

}  // namespace qm
