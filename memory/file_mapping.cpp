#include "memory/file_mapping.h"

#include <new>

#include "memory/mapping_fault_watch.h"

namespace qm {

std::unique_ptr<FileMapping> FileMapping::map(const File& file, std::uint64_t largest) {
  if (!file.isOpen()) return nullptr;
  const FileView view = mapWholeFile(file.nativeHandle(), largest);
  if (!view) return nullptr;
  int watch_slot = WatchedMappings::add(view.data, static_cast<std::size_t>(view.size));
  auto* mapping = new (std::nothrow) FileMapping(view, watch_slot);
  if (mapping == nullptr) {
    WatchedMappings::remove(watch_slot);
    unmapFile(view);
  }
  return std::unique_ptr<FileMapping>(mapping);
}

FileMapping::~FileMapping() {
  WatchedMappings::remove(watch_slot_);
  unmapFile(view_);
}

}  // namespace qm
