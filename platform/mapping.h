#pragma once
// Read-only views of whole files in memory. A view reads the file's bytes where the system
// caches them, without copying them into a buffer of the program's own.
#include <cstdint>

#include "platform/file.h"

namespace qm {

struct FileView {
  const std::uint8_t* data = nullptr;
  std::uint64_t size = 0;
  explicit operator bool() const { return data != nullptr; }
};

// Maps the whole of a regular file (File::nativeHandle()) read-only, from offset 0 to its
// current size, with every page read in at once (one call instead of a fault per page later
// on). Empty for an empty file, one larger than `largest` bytes or than the address space, one
// that is not a regular file (a pipe or a device), a handle that is no open file, on a system
// that reads files instead, or when the system refuses; the view outlives the file's handle.
FileView mapWholeFile(NativeHandle file, std::uint64_t largest);
void unmapFile(FileView view);

}  // namespace qm
