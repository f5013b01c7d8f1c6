#include "finalize/piece_list.h"

namespace qm {

bool PieceList::grow() {
  std::size_t capacity = capacity_ < 4096 ? 4096 : 2 * capacity_;
  if (!growLargeBuffer(encoded_, capacity)) return false;
  capacity_ = capacity;
  return true;
}

}  // namespace qm
