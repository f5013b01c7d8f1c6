#pragma once
// A window [start, end) onto another stream, which it owns. An end of 0 or less means the
// window runs to the inner stream's end.
#include <cstdint>
#include <memory>

#include "stream/stream.h"

namespace qm {

class SliceStream : public Stream {
 public:
  // Seeks the inner stream to start; a null inner stream or a negative start gives null.
  static std::unique_ptr<SliceStream> open(std::unique_ptr<Stream> inner, std::int64_t start,
                                           std::int64_t end);

  // Reads and writes are limited to start + end - inner tell: the bound adds start to the
  // end once more, kept that way on purpose for files that rely on it.
  std::int64_t read(void* buffer, std::size_t count) override;
  std::int64_t write(const void* buffer, std::size_t count) override;
  // Position relative to start; -1 once the inner stream lies beyond end - start.
  std::int64_t tell() override;
  // The target is clamped to [start, end]; returns the position relative to start, or -1.
  std::int64_t seek(std::int64_t offset, int origin) override;
  // Closes and releases the inner stream and returns its close result. The slice itself stays
  // usable as an empty stream.
  int close() override;

  std::int64_t start() const { return start_; }
  std::int64_t end() const { return end_; }

 private:
  SliceStream(std::unique_ptr<Stream> inner, std::int64_t start, std::int64_t end)
      : inner_(std::move(inner)), start_(start), end_(end) {}
  bool bounded() const { return end_ > 0; }
  std::size_t limitCount(std::size_t count);

  std::unique_ptr<Stream> inner_;
  std::int64_t start_;
  std::int64_t end_;
};

}  // namespace qm
