#include "platform/file.h"

#include <windows.h>

#include <cstring>
#include <memory>
#include <new>

#include "platform/windows/path_facts.h"
#include "platform/windows/wide_path.h"

namespace qm {
namespace {

// The runtime library's streams move the system's file position, which a transfer at an
// offset also moves on Windows; so the file keeps its position itself and every call names its
// offset, and the buffer of small transfers is kept here too.
struct OpenFile {
  HANDLE handle;
  bool writing;
  std::uint64_t position = 0;
  // Reading: the file's bytes from buffer_offset on, `filled` of them. Writing: `filled` bytes
  // not yet handed to the system, which end at `position` (every seek hands them over first).
  std::unique_ptr<std::uint8_t[]> buffer;
  std::uint64_t buffer_offset = 0;
  std::size_t filled = 0;
};

constexpr std::size_t kBufferSize = std::size_t{64} << 10;
// One call moves at most what its DWORD count can say; a round gigabyte keeps the calls aligned.
constexpr std::size_t kLargestCall = std::size_t{1} << 30;

OpenFile* openFileOf(std::intptr_t stream) { return reinterpret_cast<OpenFile*>(stream); }

OVERLAPPED at(std::uint64_t offset) {
  OVERLAPPED where{};
  where.Offset = static_cast<DWORD>(offset);
  where.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return where;
}

// One read at `offset`: the bytes it got, 0 at the end of the file, -1 on failure.
std::int64_t readOnce(HANDLE handle, std::uint64_t offset, void* buffer, std::size_t count) {
  OVERLAPPED where = at(offset);
  DWORD got = 0;
  if (!ReadFile(handle, buffer, static_cast<DWORD>(count < kLargestCall ? count : kLargestCall), &got, &where)) {
    return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
  }
  return got;
}

// How many of the `count` bytes reached the file at `offset`; fewer only on failure.
std::size_t writeAll(HANDLE handle, std::uint64_t offset, const void* bytes, std::size_t count) {
  const auto* from = static_cast<const std::uint8_t*>(bytes);
  std::size_t done = 0;
  while (done < count) {
    OVERLAPPED where = at(offset + done);
    const std::size_t left = count - done;
    DWORD written = 0;
    if (!WriteFile(handle, from + done, static_cast<DWORD>(left < kLargestCall ? left : kLargestCall), &written,
                   &where)) {
      break;
    }
    if (written == 0) {
      SetLastError(ERROR_IO_DEVICE);
      break;
    }
    done += written;
  }
  return done;
}

bool haveBuffer(OpenFile* file) {
  if (!file->buffer) file->buffer.reset(new (std::nothrow) std::uint8_t[kBufferSize]);
  return file->buffer != nullptr;
}

// Hands the bytes held for writing to the system. Failed, they are dropped: the file lacks them
// whatever comes next, and close() reports it.
bool handOver(OpenFile* file) {
  if (!file->writing || file->filled == 0) return true;
  const std::size_t count = file->filled;
  file->filled = 0;
  return writeAll(file->handle, file->position - count, file->buffer.get(), count) == count;
}

}  // namespace

bool flushToDisk(NativeHandle handle) { return FlushFileBuffers(reinterpret_cast<HANDLE>(handle)); }

std::optional<File> File::open(const char* path, FileAccess access) {
  std::optional<std::wstring> wide = systemPath(path);
  if (!wide) return std::nullopt;
  const bool writing = access == FileAccess::kWrite;
  // Others may read the file meanwhile, and remove or rename it, but not write it: an input
  // cannot change under its conversion, and a file another program is still writing cannot be
  // opened. Removing stays allowed so that a stop can remove an output still being written.
  HANDLE handle = CreateFileW(wide->c_str(), writing ? GENERIC_WRITE | FILE_READ_ATTRIBUTES : GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, writing ? CREATE_ALWAYS : OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    explainRefusal(*wide);
    return std::nullopt;
  }
  auto* file = new (std::nothrow) OpenFile{handle, writing, 0, nullptr, 0, 0};
  if (file == nullptr) {
    CloseHandle(handle);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return std::nullopt;
  }
  return File(reinterpret_cast<std::intptr_t>(file));
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

std::size_t File::read(void* buffer, std::size_t count) {
  OpenFile* file = openFileOf(stream_);
  if (file->writing) {
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
  }
  auto* out = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  while (done < count) {
    const std::size_t left = count - done;
    if (file->position >= file->buffer_offset && file->position - file->buffer_offset < file->filled) {
      const std::size_t from = static_cast<std::size_t>(file->position - file->buffer_offset);
      const std::size_t n = left < file->filled - from ? left : file->filled - from;
      std::memcpy(out + done, file->buffer.get() + from, n);
      file->position += n;
      done += n;
      continue;
    }
    if (left >= kBufferSize || !haveBuffer(file)) {
      const std::int64_t n = readOnce(file->handle, file->position, out + done, left);
      if (n <= 0) break;
      file->position += static_cast<std::uint64_t>(n);
      done += static_cast<std::size_t>(n);
      continue;
    }
    const std::int64_t n = readOnce(file->handle, file->position, file->buffer.get(), kBufferSize);
    if (n <= 0) break;
    file->buffer_offset = file->position;
    file->filled = static_cast<std::size_t>(n);
  }
  return done;
}

std::size_t File::write(const void* bytes, std::size_t count) {
  OpenFile* file = openFileOf(stream_);
  if (!file->writing) {
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
  }
  if (file->filled + count > kBufferSize && !handOver(file)) return 0;
  if (count >= kBufferSize || !haveBuffer(file)) {
    const std::size_t written = writeAll(file->handle, file->position, bytes, count);
    file->position += written;
    return written;
  }
  std::memcpy(file->buffer.get() + file->filled, bytes, count);
  file->filled += count;
  file->position += count;
  return count;
}

std::int64_t File::seek(std::int64_t offset, SeekFrom from) {
  OpenFile* file = openFileOf(stream_);
  if (!handOver(file)) return -1;
  std::int64_t base = 0;
  if (from == SeekFrom::kCurrent) {
    base = static_cast<std::int64_t>(file->position);
  } else if (from == SeekFrom::kEnd) {
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file->handle, &size)) return -1;
    base = size.QuadPart;
  }
  std::int64_t target;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) {
    SetLastError(ERROR_NEGATIVE_SEEK);
    return -1;
  }
  file->position = static_cast<std::uint64_t>(target);
  return target;
}

std::int64_t File::tell() { return static_cast<std::int64_t>(openFileOf(stream_)->position); }

std::int64_t File::readAt(std::uint64_t offset, void* buffer, std::size_t count) const {
  const OpenFile* file = openFileOf(stream_);
  auto* out = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  while (done < count) {
    const std::int64_t n = readOnce(file->handle, offset + done, out + done, count - done);
    if (n < 0) return done ? static_cast<std::int64_t>(done) : -1;
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

bool File::writeAt(std::uint64_t offset, const void* bytes, std::size_t count) {
  return writeAll(openFileOf(stream_)->handle, offset, bytes, count) == count;
}

bool File::flush() { return handOver(openFileOf(stream_)); }

bool File::facts(PathFacts* facts) const { return factsOfHandle(openFileOf(stream_)->handle, facts); }

NativeHandle File::nativeHandle() const { return reinterpret_cast<NativeHandle>(openFileOf(stream_)->handle); }

bool File::close() {
  if (stream_ == 0) return true;
  OpenFile* file = openFileOf(stream_);
  stream_ = 0;
  // The file is given up even when its last bytes could not be written.
  bool closed = handOver(file);
  if (closed) {
    closed = CloseHandle(file->handle) != 0;
  } else {
    closeKeepingReason(file->handle);
  }
  delete file;
  return closed;
}

}  // namespace qm
