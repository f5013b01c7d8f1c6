#include "memory/file_mapping.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <new>

#include "memory/mapping_fault_watch.h"

namespace qm {

std::unique_ptr<FileMapping> FileMapping::map(const File& file, std::uint64_t largest) {
  if (!file.isOpen()) return nullptr;
  int descriptor = static_cast<int>(file.nativeHandle());
  struct stat status {};
  if (descriptor < 0 || fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0) {
    return nullptr;
  }
  auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > largest || size > SIZE_MAX) return nullptr;
  // Populated at once: one call maps every page instead of one fault per page later on.
  void* data = mmap(nullptr, static_cast<std::size_t>(size), PROT_READ, MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
  if (data == MAP_FAILED) return nullptr;
  int watch_slot = WatchedMappings::add(data, static_cast<std::size_t>(size));
  auto* mapping = new (std::nothrow) FileMapping(static_cast<const std::uint8_t*>(data), size, watch_slot);
  if (mapping == nullptr) {
    WatchedMappings::remove(watch_slot);
    munmap(data, static_cast<std::size_t>(size));
  }
  return std::unique_ptr<FileMapping>(mapping);
}

FileMapping::~FileMapping() {
  WatchedMappings::remove(watch_slot_);
  munmap(const_cast<std::uint8_t*>(data_), static_cast<std::size_t>(size_));
}

}  // namespace qm
