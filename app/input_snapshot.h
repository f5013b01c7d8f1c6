#pragma once
// What an input looked like when its conversion began. Before the output is committed, the
// input is looked at again: if another program changed it meanwhile (a logger still writing
// it, a copy cut short, a file put in its place), the output would not hold what the input
// holds now, and with -d the input would be removed for an output that lacks part of it.
#include <string_view>

#include "stream/directory_handle.h"

namespace qm {

class InputSnapshot {
 public:
  // Looks at the input now.
  InputSnapshot(const DirectoryHandle& root, std::string_view path);

  // Looks again: true when the file's size, times or identity differ or it is gone. An input
  // that could not be looked at in the first place counts as unchanged.
  bool changed() const;

 private:
  const DirectoryHandle& root_;
  std::string_view path_;
  DirectoryEntry before_;
  bool known_ = false;
};

}  // namespace qm
