#include "finalize/sorted_payloads.h"

#include "finalize/piece_stream.h"

namespace qm {

std::unique_ptr<Stream> SortedPayloads::release() {
  if (ready_) return std::move(ready_);
  if (copies_) return std::move(copies_);
  return std::make_unique<PieceStream>(memory_, std::move(pieces_));
}

}  // namespace qm
