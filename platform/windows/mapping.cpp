#include "platform/mapping.h"

namespace qm {

// Windows reads inputs into memory instead of mapping them: the callers read the file when the
// view is empty, which every input may meet anyway (a pipe, a file larger than allowed).
FileView mapWholeFile(NativeHandle, std::uint64_t) { return {}; }

void unmapFile(FileView) {}

}  // namespace qm
