#include "app/input_snapshot.h"

namespace qm {

InputSnapshot::InputSnapshot(const DirectoryHandle& root, std::string_view path) : root_(root), path_(path) {
  known_ = root_.stat(path_, &before_) && before_.type == kEntryFile;
}

bool InputSnapshot::changed() const {
  if (!known_) return false;
  DirectoryEntry now;
  if (!root_.stat(path_, &now)) return true;
  return now.type != before_.type || now.size != before_.size || now.modified_ns != before_.modified_ns ||
         now.changed_ns != before_.changed_ns || now.inode != before_.inode;
}

}  // namespace qm
