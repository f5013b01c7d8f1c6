#pragma once
// Read-only views of whole files in memory. A view reads the file's bytes where the system
// caches them, without copying them into a buffer of the program's own.
#include <cstdint>
#include <cstdio>

namespace qm {

// An opened file as the system knows it: a descriptor where files have descriptors, a handle
// where they have handles. It does not own the file.
struct NativeFile {
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t value = kNone;
};

// The native file behind a runtime library stream; kNone for a null stream. For the files still
// opened through the runtime library.
NativeFile nativeFileOf(std::FILE* file);

struct FileView {
  const std::uint8_t* data = nullptr;
  std::uint64_t size = 0;
  explicit operator bool() const { return data != nullptr; }
};

// Maps the whole of a regular file read-only, from offset 0 to its current size, with every
// page read in at once (one call instead of a fault per page later on). Empty for an empty
// file, one larger than `largest` bytes or than the address space, one that is not a regular
// file (a pipe or a device), or when the system refuses; the view outlives the file's handle.
FileView mapWholeFile(NativeFile file, std::uint64_t largest);
void unmapFile(FileView view);

}  // namespace qm
