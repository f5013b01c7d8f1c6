#include "stream/piece_list.h"

#include <cstdlib>

namespace qm {

bool PieceList::grow() {
  std::size_t capacity = capacity_ < 4096 ? 4096 : 2 * capacity_;
  void* grown = std::realloc(encoded_.get(), capacity);
  if (!grown) return false;
  static_cast<void>(encoded_.release());
  encoded_.reset(static_cast<std::uint8_t*>(grown));
  capacity_ = capacity;
  adviseHugePages(grown, capacity);
  return true;
}

}  // namespace qm
