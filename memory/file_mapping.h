#pragma once
// A read-only mapping of a whole file. Taking an input's bytes from the page cache in place
// spares the copy of a read and, above all, the fresh memory a file-sized buffer would need,
// which costs more than reading the file itself. The price: a file that another program
// shortens while it is mapped faults (SIGBUS) on the next access to the lost pages; a mapping
// made under a `MappingFaultWatch` reads zeros there instead and the watch tells.
#include <cstdint>
#include <memory>

#include "platform/file.h"
#include "platform/mapping.h"

namespace qm {

class FileMapping {
 public:
  // Maps the open file from offset 0 to its current size. Null for an empty file, one larger
  // than `largest` bytes, or one that cannot be mapped (a pipe or a device, for instance); the
  // caller then reads it instead.
  static std::unique_ptr<FileMapping> map(const File& file, std::uint64_t largest);

  FileMapping(const FileMapping&) = delete;
  FileMapping& operator=(const FileMapping&) = delete;
  ~FileMapping();

  const std::uint8_t* data() const { return view_.data; }
  std::uint64_t size() const { return view_.size; }

 private:
  FileMapping(FileView view, int watch_slot) : view_(view), watch_slot_(watch_slot) {}

  const FileView view_;
  int watch_slot_;  // registration with the fault watch, -1 when unwatched
};

}  // namespace qm
