#pragma once
// A growable in-memory byte buffer with a position; the container layers hold their decoded
// content in one, and the finalization collects sorted records in them.
#include <cstdint>
#include <cstring>

#include "memory/large_buffer.h"
#include "stream/stream.h"

namespace qm {

class MemoryStream : public Stream {
 public:
  MemoryStream() = default;
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;
  ~MemoryStream() override = default;

  std::int64_t read(void* buffer, std::size_t count) override;
  std::int64_t write(const void* buffer, std::size_t count) override {
    // Appending into room already there is the sorting's per-record path: keep it inline.
    if (count != 0 && position_ <= capacity_ && capacity_ - position_ >= count) {
      std::memcpy(data_ + position_, buffer, count);
      position_ += count;
      if (position_ > size_) size_ = position_;
      return static_cast<std::int64_t>(count);
    }
    return writeSlow(buffer, count);
  }
  std::int64_t tell() override { return static_cast<std::int64_t>(position_); }
  // Origin 2 counts the offset backwards from the end, as an unsigned number (so a seek past
  // the start lands at 0). A target beyond the capacity is refused.
  std::int64_t seek(std::int64_t offset, int origin) override;
  int close() override;
  ByteView contents() override { return {data_, size_}; }

  // Direct access for code that owns the stream (no copy).
  const std::uint8_t* data() const { return data_; }
  std::uint64_t size() const { return size_; }
  std::uint64_t capacity() const { return capacity_; }
  // Makes room for n more bytes after the position without changing the size.
  bool reserve(std::uint64_t n);
  // Takes over a buffer filled elsewhere (its first `size` of `capacity` bytes count) in place
  // of the stream's own, so that a decoded layer needs no copy; the position is left at the end.
  void adopt(LargeBuffer buffer, std::uint64_t size, std::uint64_t capacity);

 private:
  std::int64_t writeSlow(const void* buffer, std::size_t count);

  std::uint64_t capacity_ = 0;
  std::uint64_t size_ = 0;
  std::uint64_t position_ = 0;
  LargeBuffer buffer_;
  std::uint8_t* data_ = nullptr;  // buffer_'s bytes, for the inline write
};

}  // namespace qm
