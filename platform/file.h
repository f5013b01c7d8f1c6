#pragma once
// An open file. Reads and writes at the file's own position are buffered, so that a small one
// costs no system call of its own; reads and writes at an offset go straight to the file, past
// that buffer, without moving the position, and may run on several threads at once.
#include <cstddef>
#include <cstdint>
#include <optional>

namespace qm {

struct PathFacts;  // platform/file_system.h

// The system's own handle of an open file or folder (a descriptor, a HANDLE), for the few
// calls outside this class that take one, such as a mapping's.
using NativeHandle = std::intptr_t;

// Puts on the disk what the system still holds of an open file or folder; false on failure.
// flushToDisk is the system's own; tests hand in stand-ins that fail.
using DiskFlush = bool (*)(NativeHandle handle);
bool flushToDisk(NativeHandle handle);

enum class FileAccess { kRead, kWrite };  // kWrite creates the file, or empties the one there

enum class SeekFrom { kStart, kCurrent, kEnd };

class File {
 public:
  // None, with the reason in lastSystemError(), when the file cannot be opened.
  static std::optional<File> open(const char* path, FileAccess access);

  File(File&& other) noexcept : stream_(other.stream_) { other.stream_ = 0; }
  File& operator=(File&& other) noexcept;
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  // Closes the file; a failure then goes unreported (close() reports it).
  ~File();

  // The calls below but close() need an open file.
  bool isOpen() const { return stream_ != 0; }
  // Transfers at the file's position, which moves past them: how many bytes went, fewer at the
  // end of the file or on a failure (the reason then in lastSystemError()).
  std::size_t read(void* buffer, std::size_t count);
  std::size_t write(const void* bytes, std::size_t count);
  // The position reached, or -1.
  std::int64_t seek(std::int64_t offset, SeekFrom from);
  std::int64_t tell();
  // Reads until `count` bytes or the end of the file: how many it got, or -1 when the first
  // read failed (a later failure ends the bytes early).
  std::int64_t readAt(std::uint64_t offset, void* buffer, std::size_t count) const;
  // All `count` bytes at `offset`, or false.
  bool writeAt(std::uint64_t offset, const void* bytes, std::size_t count);
  // Hands the bytes written at the position and still buffered to the system.
  bool flush();
  // Type, size, times and identity of the open file.
  bool facts(PathFacts* facts) const;
  NativeHandle nativeHandle() const;
  // Gives the file up, also when that fails (buffered bytes could not be written): false then.
  bool close();

 private:
  explicit File(std::intptr_t stream) : stream_(stream) {}

  std::intptr_t stream_;  // what the system's implementation keeps of the open file; 0 once closed
};

}  // namespace qm
