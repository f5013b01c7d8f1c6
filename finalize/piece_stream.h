#pragma once
// A read-only stream that delivers listed pieces of a block of memory one after the other:
// the sorted records of a data group, gathered from the input only when they are written.
#include <cstdint>

#include "finalize/piece_list.h"
#include "stream/stream.h"

namespace qm {

class PieceStream : public Stream {
 public:
  // `memory` is borrowed and must stay valid while the stream is read. The size is the sum of
  // the pieces; a piece that does not lie inside the memory ends the stream early, so a reader
  // that expects `size()` bytes sees the shortfall instead of bytes from elsewhere.
  PieceStream(ByteView memory, PieceList pieces)
      : memory_(memory), pieces_(std::move(pieces)), cursor_(pieces_) {}
  PieceStream(const PieceStream&) = delete;
  PieceStream& operator=(const PieceStream&) = delete;

  std::int64_t read(void* buffer, std::size_t count) override;
  std::int64_t tell() override { return static_cast<std::int64_t>(position_); }
  // Any origin of the three; the target is clamped to [0, size]. Going back starts the walk over
  // the pieces again, so seeks are meant for rewinding and measuring, not for random access.
  std::int64_t seek(std::int64_t offset, int origin) override;

  std::uint64_t size() const { return pieces_.totalLength(); }

 private:
  bool nextPiece() {
    if (batch_next_ == batch_end_ && !decodeBatch()) return false;
    const Piece& piece = batch_[batch_next_++];
    piece_at_ = piece.offset;
    piece_left_ = piece.length;
    return true;
  }
  bool decodeBatch();
  std::size_t copyWholePieces(std::uint8_t* out, std::size_t done, std::size_t count);
  std::size_t copyFromCurrentPiece(std::uint8_t* out, std::size_t count);
  void rewind();

  // Pieces are decoded in batches and their bytes prefetched: the sorted records of one kind
  // lie scattered over the input, and waiting for each one's cache line would cost more than
  // copying it.
  static constexpr std::size_t kBatch = 64;

  ByteView memory_;  // borrowed
  PieceList pieces_;
  PieceList::Cursor cursor_;
  Piece batch_[kBatch];
  std::size_t batch_next_ = 0;
  std::size_t batch_end_ = 0;
  bool decoded_all_ = false;  // the cursor gave its last piece, or one outside the memory
  std::uint64_t position_ = 0;
  std::uint64_t piece_at_ = 0;    // memory offset of the next byte of the current piece
  std::uint64_t piece_left_ = 0;  // bytes of the current piece not yet delivered
};

}  // namespace qm
