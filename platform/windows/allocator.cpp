#include "platform/allocator.h"

#include <malloc.h>

namespace qm {

// The C library's heap on Windows takes no hints on what it keeps: it gives large blocks back
// to the system as they are freed, and keeps small ones as it sees fit.
void keepFreedHeapMemory(std::size_t, std::size_t) {}

// It does not say how much it holds freed.
std::uint64_t freeHeapBytes() { return 0; }

void returnFreeHeapMemory() { _heapmin(); }

}  // namespace qm
