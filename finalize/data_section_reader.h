#pragma once
// Sequential reader over a data block's data section that fetches it in large pieces, so the
// record loop costs one stream call per piece instead of several per record.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "stream/stream.h"

namespace qm {

class DataSectionReader {
 public:
  static constexpr std::size_t kPieceSize = 64 * 1024;

  // `section` is borrowed; it is read from offset 0 up to `size` bytes, or until it delivers
  // no more. The size need not be trusted: buffers grow only with the bytes that arrive.
  DataSectionReader(Stream* section, std::uint64_t size);
  // A section that lies in memory (borrowed) is read in place: every range ensure() returns
  // points into `bytes`.
  DataSectionReader(const std::uint8_t* bytes, std::uint64_t size);

  // Makes the next n bytes available as one contiguous range and returns it, without consuming
  // them. Null when the section ends before n bytes or the stream fails to deliver them.
  const std::uint8_t* ensure(std::uint64_t n) {
    // Nearly every record lies inside the current piece: that case stays inline.
    if (end_ - begin_ >= n) return base_ + begin_;
    return ensureSlow(n);
  }
  // Moves past n bytes that ensure() made available.
  void consume(std::size_t n) { begin_ += n; }

  // Bytes from the position on that ensure() gives without reading.
  std::uint64_t buffered() const { return end_ - begin_; }

  // Offset of the next unconsumed byte in the section, and what is left after it.
  std::uint64_t position() const { return fetched_ - (end_ - begin_); }
  std::uint64_t remaining() const { return size_ - position(); }

 private:
  const std::uint8_t* ensureSlow(std::uint64_t n);
  bool fill(std::uint64_t n);

  Stream* section_;  // borrowed; null for a section in memory
  std::uint64_t size_;
  std::uint64_t fetched_ = 0;  // section bytes read into the window so far
  std::vector<std::uint8_t> window_;
  const std::uint8_t* base_ = nullptr;  // the window's bytes, or the section in memory
  std::uint64_t begin_ = 0;
  std::uint64_t end_ = 0;
};

}  // namespace qm
