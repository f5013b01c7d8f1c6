#pragma once
// A memory stream that counts the calls made on it and reports its close to a flag the test
// keeps, so that tests can see what a layer does to the stream beneath it; and the bytes tests
// put in streams.
#include <memory>
#include <string>
#include <string_view>

#include "stream/memory_stream.h"

namespace qm::test {

struct StreamCalls {
  int reads = 0;
  int seeks = 0;
  int closes = 0;
  bool destroyed = false;
};

class CountingStream : public MemoryStream {
 public:
  explicit CountingStream(StreamCalls* calls) : calls_(calls) {}
  ~CountingStream() override { calls_->destroyed = true; }

  std::int64_t read(void* buffer, std::size_t count) override {
    ++calls_->reads;
    return MemoryStream::read(buffer, count);
  }
  std::int64_t seek(std::int64_t offset, int origin) override {
    ++calls_->seeks;
    return MemoryStream::seek(offset, origin);
  }
  int close() override {
    ++calls_->closes;
    return MemoryStream::close();
  }

 private:
  StreamCalls* calls_;
};

// A counting stream holding the bytes, positioned at 0.
inline std::unique_ptr<CountingStream> countingStreamOf(std::string_view bytes, StreamCalls* calls) {
  auto stream = std::make_unique<CountingStream>(calls);
  stream->write(bytes.data(), bytes.size());
  stream->seek(0, 0);
  *calls = StreamCalls{};
  return stream;
}

// `size` bytes without a short period, so that bytes out of place show.
inline std::string patternBytes(std::size_t size) {
  std::string out(size, '\0');
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<char>((i * 2654435761u) >> 13);
  return out;
}

// The bytes as a memory stream positioned at 0.
inline std::unique_ptr<MemoryStream> memoryStreamOf(std::string_view bytes) {
  auto stream = std::make_unique<MemoryStream>();
  if (!bytes.empty()) stream->write(bytes.data(), bytes.size());
  stream->seek(0, 0);
  return stream;
}

// Everything from the current position to the end.
inline std::string readRest(Stream* stream) {
  std::string out;
  char chunk[4096];
  for (;;) {
    std::int64_t n = stream->read(chunk, sizeof chunk);
    if (n <= 0) return out;
    out.append(chunk, static_cast<std::size_t>(n));
  }
}

}  // namespace qm::test
