#include "platform/pages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

namespace qm {
namespace {

// Address space of `size` bytes from a multiple of `alignment` on: a larger stretch is mapped
// and its ends cut off.
void* mapAligned(std::size_t size, std::size_t alignment, int protection) {
  if (size > SIZE_MAX - alignment) {  // no address space is that large anyway
    errno = ENOMEM;
    return nullptr;
  }
  const std::size_t span = size + alignment;
  void* raw = mmap(nullptr, span, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t begin = (start + alignment - 1) & ~std::uintptr_t{alignment - 1};
  const std::uintptr_t end = begin + size;
  if (begin > start) munmap(raw, begin - start);
  if (start + span > end) munmap(reinterpret_cast<void*>(end), start + span - end);
  return reinterpret_cast<void*>(begin);
}

}  // namespace

std::size_t pageSize() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

void* allocatePages(std::size_t size, std::size_t alignment) {
  return mapAligned(size, alignment, PROT_READ | PROT_WRITE);
}

void freePages(void* data, std::size_t size) {
  if (data != nullptr) munmap(data, size);
}

void* growPages(void* data, std::size_t size, std::size_t new_size, std::size_t alignment) {
  // In place if it can; moved wherever the kernel likes, the pages would lose their alignment,
  // and with it the huge pages.
  void* grown = mremap(data, size, new_size, 0);
  if (grown != MAP_FAILED) return grown;
  void* target = mapAligned(new_size, alignment, PROT_NONE);
  if (target == nullptr) return nullptr;
  grown = mremap(data, size, new_size, MREMAP_MAYMOVE | MREMAP_FIXED, target);
  if (grown == MAP_FAILED) {
    const int error = errno;
    munmap(target, new_size);
    errno = error;
    return nullptr;
  }
  return grown;
}

void hintHugePages(void* data, std::size_t size) {
  // Advice on part of a mapping splits it in two, and a split mapping can no longer be grown
  // by moving its pages: the advice covers every page the range touches.
  const std::uintptr_t page = pageSize();
  auto begin = reinterpret_cast<std::uintptr_t>(data) & ~(page - 1);
  std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(data) + size + page - 1) & ~(page - 1);
  madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

bool populatePagesForWriting(void* data, std::size_t size) {
  return madvise(data, size, MADV_POPULATE_WRITE) == 0;
}

}  // namespace qm
