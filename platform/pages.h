#pragma once
// Memory straight from the system, in whole pages, and hints on how to back it. A hint the
// system cannot act on does nothing.
#include <cstddef>

namespace qm {

// Bytes in one page of memory as the system hands it out.
std::size_t pageSize();

// Fresh zeroed read-write memory of `size` bytes (whole pages) starting at a multiple of
// `alignment` (a power of two, whole pages). Null when memory or address space runs out.
void* allocatePages(std::size_t size, std::size_t alignment);
// Hands pages from allocatePages or growPages back to the system.
void freePages(void* data, std::size_t size);

// Grows pages from allocatePages to `new_size` bytes (whole pages, larger than `size`),
// keeping their contents: in place when the address space behind them is free, else at a new
// start, again a multiple of `alignment`, where the system moves the pages instead of copying
// their bytes. Returns the start; null, with the pages untouched, when that fails.
void* growPages(void* data, std::size_t size, std::size_t new_size, std::size_t alignment);

// Asks for huge pages to back every page that [data, data + size) touches, so that the first
// touch of that memory takes one fault per huge page instead of one per page.
void hintHugePages(void* data, std::size_t size);

// Faults in, for writing, those pages of [data, data + size) that are not there yet; present
// pages and every byte stay as they are. False where the system cannot (or has no memory).
bool populatePagesForWriting(void* data, std::size_t size);

}  // namespace qm
