#pragma once
// Copying a large stream into a file through two buffers and a second thread: while one buffer
// is written out (the kernel's copy into the file cache), the next is filled (for sorted
// records, gathering them from the input). With two cores the cheaper of the two is hidden.
#include <cstdint>

#include "stream/stream.h"

namespace qm {

// Copies `size` bytes from the source's position to the target's. True when all of them were
// read and written; a short read or write stops the copy and gives false. Small copies, and any
// copy when no thread can be started, run on the calling thread alone. The target must not be
// touched by anyone else until the call returns.
bool copyOverlapped(Stream* source, Stream* target, std::uint64_t size);

}  // namespace qm
