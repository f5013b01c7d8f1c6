#include "platform/pages.h"

#include <windows.h>

#include <cstdint>
#include <cstring>

namespace qm {
namespace {

SYSTEM_INFO systemInfo() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info;
}

// Sets aside `reserved` bytes of address space from a multiple of `alignment` on and commits the
// first `size` of them. Beyond the system's own granularity (64 KiB) the alignment takes a
// larger stretch whose start is then taken again: another thread may take it in between, so
// that is tried a few times.
void* reserveAligned(std::size_t size, std::size_t reserved, std::size_t alignment) {
  void* data = nullptr;
  if (alignment <= systemInfo().dwAllocationGranularity) {
    data = VirtualAlloc(nullptr, reserved, MEM_RESERVE, PAGE_READWRITE);
  } else {
    if (reserved > SIZE_MAX - alignment) {  // no address space is that large anyway
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return nullptr;
    }
    for (int attempt = 0; attempt < 16 && data == nullptr; ++attempt) {
      void* raw = VirtualAlloc(nullptr, reserved + alignment, MEM_RESERVE, PAGE_NOACCESS);
      if (raw == nullptr) return nullptr;
      const auto start = reinterpret_cast<std::uintptr_t>(raw);
      const std::uintptr_t aligned = (start + alignment - 1) & ~std::uintptr_t{alignment - 1};
      VirtualFree(raw, 0, MEM_RELEASE);
      data = VirtualAlloc(reinterpret_cast<void*>(aligned), reserved, MEM_RESERVE, PAGE_READWRITE);
    }
  }
  if (data == nullptr) return nullptr;
  if (VirtualAlloc(data, size, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
    const DWORD reason = GetLastError();
    VirtualFree(data, 0, MEM_RELEASE);
    SetLastError(reason);
    return nullptr;
  }
  return data;
}

}  // namespace

std::size_t pageSize() { return systemInfo().dwPageSize; }

void* allocatePages(std::size_t size, std::size_t alignment) {
  // Windows cannot move pages to a new address, so a block grows only in place: twice its size
  // is set aside for that, as growing buffers double. Address space costs nothing until used.
  if (size <= SIZE_MAX / 2) {
    if (void* data = reserveAligned(size, 2 * size, alignment)) return data;
  }
  return reserveAligned(size, size, alignment);
}

void freePages(void* data, std::size_t) {
  if (data != nullptr) VirtualFree(data, 0, MEM_RELEASE);
}

void* growPages(void* data, std::size_t size, std::size_t new_size, std::size_t alignment) {
  auto* end = static_cast<std::uint8_t*>(data) + size;
  MEMORY_BASIC_INFORMATION behind;
  if (VirtualQuery(end, &behind, sizeof behind) == sizeof behind && behind.State == MEM_RESERVE &&
      behind.AllocationBase == data && behind.RegionSize >= new_size - size &&
      VirtualAlloc(end, new_size - size, MEM_COMMIT, PAGE_READWRITE) != nullptr) {
    return data;
  }
  // Beyond what was set aside: new pages, and the bytes copied over.
  void* grown = allocatePages(new_size, alignment);
  if (grown == nullptr) return nullptr;
  std::memcpy(grown, data, size);
  freePages(data, size);
  return grown;
}

void hintHugePages(void*, std::size_t) {
  // Large pages need a privilege ordinary accounts lack; ordinary pages serve.
}

bool populatePagesForWriting(void*, std::size_t) {
  SetLastError(ERROR_NOT_SUPPORTED);  // the first write faults each page in, as without this
  return false;
}

}  // namespace qm
