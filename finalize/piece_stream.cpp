#include "finalize/piece_stream.h"

#include <algorithm>
#include <cstring>

namespace qm {
namespace {
constexpr std::size_t kShortCopy = 32;
}

bool PieceStream::decodeBatch() {
  batch_next_ = 0;
  batch_end_ = decoded_all_ ? 0 : cursor_.next(batch_, kBatch);
  for (std::size_t i = 0; i < batch_end_; ++i) {
    const Piece& piece = batch_[i];
    if (piece.offset > memory_.size || piece.length > memory_.size - piece.offset) {
      batch_end_ = i;  // a piece outside the memory ends the walk
      decoded_all_ = true;
      break;
    }
    __builtin_prefetch(memory_.data + piece.offset);
  }
  if (batch_end_ < kBatch) decoded_all_ = true;
  return batch_end_ != 0;
}

void PieceStream::rewind() {
  cursor_ = PieceList::Cursor(pieces_);
  position_ = piece_at_ = piece_left_ = 0;
  batch_next_ = batch_end_ = 0;
  decoded_all_ = false;
}

// Copies the batch's pieces that fit whole into out[done, count); returns the new count done.
std::size_t PieceStream::copyWholePieces(std::uint8_t* out, std::size_t done, std::size_t count) {
  const std::uint8_t* const memory = memory_.data;
  const std::uint64_t memory_size = memory_.size;
  std::size_t next = batch_next_;
  const std::size_t end = batch_end_;
  while (next < end) {
    const std::uint64_t offset = batch_[next].offset;
    const std::uint64_t length = batch_[next].length;
    const std::size_t room = count - done;
    if (length > room) break;
    if (length <= kShortCopy && room >= kShortCopy && memory_size - offset >= kShortCopy) {
      // Most pieces are single short records: a fixed-size copy takes one or two vector moves
      // where a call to memcpy costs more than the bytes. What it writes beyond the piece lies
      // inside the caller's buffer and is overwritten by the next piece or never delivered.
      std::memcpy(out + done, memory + offset, kShortCopy);
    } else {
      std::memcpy(out + done, memory + offset, static_cast<std::size_t>(length));
    }
    done += static_cast<std::size_t>(length);
    ++next;
  }
  batch_next_ = next;
  return done;
}

std::size_t PieceStream::copyFromCurrentPiece(std::uint8_t* out, std::size_t count) {
  std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(piece_left_, count));
  if (n != 0) std::memcpy(out, memory_.data + piece_at_, n);
  piece_at_ += n;
  piece_left_ -= n;
  return n;
}

std::int64_t PieceStream::read(void* buffer, std::size_t count) {
  auto* out = static_cast<std::uint8_t*>(buffer);
  std::size_t done = copyFromCurrentPiece(out, count);
  while (done < count && (batch_next_ < batch_end_ || decodeBatch())) {
    done = copyWholePieces(out, done, count);
    if (done < count && batch_next_ < batch_end_) {
      // The next piece fits only in part: the rest of it starts the next read.
      const Piece& piece = batch_[batch_next_++];
      piece_at_ = piece.offset;
      piece_left_ = piece.length;
      done += copyFromCurrentPiece(out + done, count - done);
    }
  }
  position_ += done;
  return static_cast<std::int64_t>(done);
}

std::int64_t PieceStream::seek(std::int64_t offset, int origin) {
  std::int64_t base;
  switch (origin) {
    case kSeekSet: base = 0; break;
    case kSeekCur: base = static_cast<std::int64_t>(position_); break;
    case kSeekEnd: base = static_cast<std::int64_t>(size()); break;
    default: return kStreamRefused;
  }
  std::int64_t wanted;
  if (__builtin_add_overflow(base, offset, &wanted)) wanted = offset < 0 ? 0 : INT64_MAX;
  std::uint64_t target = std::min<std::uint64_t>(static_cast<std::uint64_t>(std::max<std::int64_t>(wanted, 0)), size());
  if (target < position_) rewind();
  if (target == size()) {
    // Measuring the size seeks here: no need to walk the pieces for it.
    position_ = target;
    piece_left_ = 0;
    batch_next_ = batch_end_ = 0;
    decoded_all_ = true;
    return static_cast<std::int64_t>(position_);
  }
  while (position_ < target) {
    if (piece_left_ == 0 && !nextPiece()) break;
    std::uint64_t step = std::min(piece_left_, target - position_);
    piece_at_ += step;
    piece_left_ -= step;
    position_ += step;
  }
  return static_cast<std::int64_t>(position_);
}

}  // namespace qm
