#pragma once
// An ordered list of byte ranges ("pieces") of one block of memory, kept compact: each piece is
// noted as its distance from the end of the one before and its length, both as variable-length
// numbers, and a piece that starts where the previous one ended just lengthens it. Sorting a
// file of many millions of records notes two or three bytes per record instead of copying it,
// so adding and walking pieces are kept inline.
#include <cstddef>
#include <cstdint>

#include "memory/large_buffer.h"

namespace qm {

struct Piece {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

class PieceList {
 public:
  // Appends a piece; empty ones are left out. Pieces may go back in memory (they cost a few
  // bytes more then), so any order of ranges can be listed.
  void add(std::uint64_t offset, std::uint64_t length) {
    if (length == 0) return;
    total_ += length;
    if (pending_.length != 0 && offset == pending_.offset + pending_.length) {
      pending_.length += length;
      return;
    }
    flush();
    pending_ = {offset, length};
  }

  // Sum of the pieces' lengths.
  std::uint64_t totalLength() const { return total_; }
  // Bytes the encoded pieces take.
  std::size_t encodedSize() const { return used_; }

  // Walks the pieces in the order they were added.
  class Cursor {
   public:
    explicit Cursor(const PieceList& list) : list_(&list) {}
    // The next piece, or false after the last.
    bool next(Piece& piece) { return next(&piece, 1) == 1; }
    // Up to `most` next pieces into `out`; how many there were (0 after the last). The walk
    // keeps its state in locals: the stores into `out` would otherwise make the compiler
    // reload it for every piece.
    std::size_t next(Piece* out, std::size_t most) {
      const std::uint8_t* bytes = list_->encoded_.get();
      const std::size_t used = list_->used_;
      std::size_t at = at_;
      std::uint64_t previous_end = previous_end_;
      std::size_t given = 0;
      while (given < most && at < used) {
        std::uint64_t distance;
        std::uint64_t length;
        if (used - at >= 2 && ((bytes[at] | bytes[at + 1]) & 0x80) == 0) {
          // Both numbers of one byte: the usual short record near the previous one.
          distance = bytes[at];
          length = bytes[at + 1];
          at += 2;
        } else if (!getNumber(bytes, used, at, distance) || !getNumber(bytes, used, at, length)) {
          at = used;
          done_ = true;  // a broken list ends here
          break;
        }
        std::uint64_t offset = previous_end + static_cast<std::uint64_t>(unzigzag(distance));
        previous_end = offset + length;
        out[given++] = {offset, length};
      }
      at_ = at;
      previous_end_ = previous_end;
      if (given < most && at == used && !done_) {
        done_ = true;
        if (list_->pending_.length != 0) out[given++] = list_->pending_;
      }
      return given;
    }

   private:
    static bool getNumber(const std::uint8_t* bytes, std::size_t used, std::size_t& at, std::uint64_t& value) {
      if (at < used && bytes[at] < 0x80) {
        value = bytes[at++];  // nearly every number fits one byte
        return true;
      }
      value = 0;
      for (unsigned shift = 0; shift < 64 && at < used; shift += 7) {
        std::uint8_t byte = bytes[at++];
        value |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
        if ((byte & 0x80) == 0) return true;
      }
      return false;
    }

    const PieceList* list_;
    std::size_t at_ = 0;  // in the encoded bytes
    std::uint64_t previous_end_ = 0;
    bool done_ = false;  // the pending piece was given out (or the walk failed)
  };

 private:
  static constexpr std::size_t kMaxEntryBytes = 20;  // two numbers of at most 10 bytes

  // Distances may be negative; zigzag keeps small ones of either sign short.
  static std::uint64_t zigzag(std::int64_t value) {
    return (static_cast<std::uint64_t>(value) << 1) ^ static_cast<std::uint64_t>(value >> 63);
  }
  static std::int64_t unzigzag(std::uint64_t value) {
    return static_cast<std::int64_t>(value >> 1) ^ -static_cast<std::int64_t>(value & 1);
  }

  // Every value is read before the first byte is stored: byte stores may alias anything, and
  // the compiler would reload the members after each of them.
  void flush() {
    if (pending_.length == 0) return;
    if (capacity_ - used_ < kMaxEntryBytes && !grow()) return;
    std::uint8_t* begin = encoded_.get();
    std::uint64_t distance = zigzag(static_cast<std::int64_t>(pending_.offset - encoded_end_));
    std::uint64_t length = pending_.length;
    std::size_t used = used_;
    encoded_end_ = pending_.offset + length;
    if ((distance | length) < 0x80) {
      // The usual short record near the previous one: both numbers of one byte.
      begin[used] = static_cast<std::uint8_t>(distance);
      begin[used + 1] = static_cast<std::uint8_t>(length);
      used_ = used + 2;
      return;
    }
    std::uint8_t* out = putNumber(putNumber(begin + used, distance), length);
    used_ = static_cast<std::size_t>(out - begin);
  }
  static std::uint8_t* putNumber(std::uint8_t* out, std::uint64_t value) {
    while (value >= 0x80) {
      *out++ = static_cast<std::uint8_t>(value) | 0x80;
      value >>= 7;
    }
    *out++ = static_cast<std::uint8_t>(value);
    return out;
  }
  // Doubles the room. When memory runs out the piece is dropped but still counted in the total,
  // so whoever copies the pieces meets a short read and fails instead of writing less.
  bool grow();

  // Plain allocated bytes, not a vector: growing then neither fills the new room with zeros
  // nor, for a large list, copies the old bytes (the pages are moved instead).
  LargeBuffer encoded_;  // the first used_ bytes hold pieces
  std::size_t capacity_ = 0;
  std::size_t used_ = 0;
  Piece pending_;                  // the last piece, still growing
  std::uint64_t encoded_end_ = 0;  // where the last encoded piece ends
  std::uint64_t total_ = 0;
};

}  // namespace qm
