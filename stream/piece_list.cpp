#include "stream/piece_list.h"

#include <algorithm>

namespace qm {

void PieceList::grow() {
  std::size_t size = std::max<std::size_t>(4096, 2 * encoded_.size());
  encoded_.resize(std::max(size, used_ + kMaxEntryBytes));
}

}  // namespace qm
