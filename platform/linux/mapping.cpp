#include "platform/mapping.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cstdint>

namespace qm {

FileView mapWholeFile(NativeHandle file, std::uint64_t largest) {
  const auto descriptor = static_cast<int>(file);
  struct stat status {};
  if (descriptor < 0 || fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0) {
    return {};
  }
  auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > largest || size > SIZE_MAX) return {};
  void* data = mmap(nullptr, static_cast<std::size_t>(size), PROT_READ, MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
  if (data == MAP_FAILED) return {};
  return {static_cast<const std::uint8_t*>(data), size};
}

void unmapFile(FileView view) {
  if (view) munmap(const_cast<std::uint8_t*>(view.data), static_cast<std::size_t>(view.size));
}

}  // namespace qm
