#pragma once
// A read-ahead buffer over the stream it owns. Every record read of the conversion goes through
// a seek and a read here, so both stay on the buffer whenever they can. Read-only.
#include <cstdint>
#include <cstring>
#include <memory>

#include "memory/file_mapping.h"
#include "memory/large_buffer.h"
#include "memory/page_toucher.h"
#include "stream/stream.h"

namespace qm {

class BufferedStream : public Stream {
 public:
  // Reading a file into memory backed by huge pages costs one copy, but the conversion then
  // reads its records far faster than through a mapping of the page cache. Beyond this size the
  // file is mapped instead, so that its pages stay the kernel's to reclaim.
  static constexpr std::uint64_t kReadWholeLimit = std::uint64_t{1} << 30;

  // The size is rounded up to a multiple of 8; the buffer starts zeroed and empty. Null for a
  // null inner stream, a size of 0 or a failed allocation. A buffer that can take a whole file
  // holds that file from the start, and its content is fixed (refills find nothing new): files
  // up to `read_whole_limit` bytes are read into it at once, larger ones are mapped into memory.
  static std::unique_ptr<BufferedStream> create(std::unique_ptr<Stream> inner, std::size_t size,
                                                std::uint64_t read_whole_limit = kReadWholeLimit);

  std::int64_t read(void* buffer, std::size_t count) override {
    // The common case, a read that the buffer holds, stays inline.
    if (count <= filled_ - position_ && count != 0) {
      std::memcpy(buffer, bytes_ + position_, count);
      position_ += count;
      return static_cast<std::int64_t>(count);
    }
    return readSlow(static_cast<std::uint8_t*>(buffer), count);
  }
  std::int64_t tell() override { return buffer_start_ + static_cast<std::int64_t>(position_); }
  // A target inside the buffered bytes (their end included) moves within the buffer; any other
  // refills there. The inner stream's end is reached even though no refill finds bytes there;
  // for a target beyond it (or before the start) the previous position comes back instead of
  // an error, so callers compare the result with the target.
  std::int64_t seek(std::int64_t offset, int origin) override;
  // The inner stream's close status. On success the buffer and the inner stream are released;
  // -1 when there is no inner stream (any more).
  int close() override;
  // The whole inner stream when the buffer holds it; none for a read-ahead buffer.
  ByteView contents() override;
  // Straight from the inner stream, past the buffer.
  std::int64_t readAt(std::uint64_t offset, void* buffer, std::size_t count) override {
    return inner_ ? inner_->readAt(offset, buffer, count) : kStreamRefused;
  }

  std::size_t capacity() const { return capacity_; }
  std::size_t filled() const { return filled_; }
  std::int64_t bufferStart() const { return buffer_start_; }

 private:
  BufferedStream(std::unique_ptr<Stream> inner, LargeBuffer buffer, std::size_t capacity)
      : inner_(std::move(inner)), buffer_(std::move(buffer)), bytes_(buffer_.get()), capacity_(capacity) {}
  BufferedStream(std::unique_ptr<Stream> inner, std::unique_ptr<FileMapping> mapping, std::size_t capacity);
  std::int64_t readSlow(std::uint8_t* out, std::size_t count);
  bool refill(std::int64_t offset);

  static std::unique_ptr<BufferedStream> readWholeFile(std::unique_ptr<Stream> inner, std::uint64_t file_size,
                                                       std::size_t capacity);
  // Reads `size` bytes from the start of the file; how many it got, or kStreamRefused.
  static std::int64_t readInTwoHalves(Stream* file, std::uint8_t* out, std::uint64_t size);

  std::unique_ptr<Stream> inner_;
  LargeBuffer buffer_;                     // the bytes read ahead, unless the file is mapped
  std::unique_ptr<FileMapping> mapping_;   // the whole file, when it could be mapped
  std::unique_ptr<PageToucher> toucher_;   // of the mapping; gone before it
  const std::uint8_t* bytes_;              // where reads take their bytes: either of the above
  std::size_t capacity_;
  std::size_t filled_ = 0;
  std::size_t position_ = 0;
  std::int64_t buffer_start_ = 0;  // offset in the inner stream of the buffer's first byte
  bool whole_file_ = false;        // the buffer holds the whole file, read or mapped
};

}  // namespace qm
