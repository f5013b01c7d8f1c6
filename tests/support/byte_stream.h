#pragma once
// A stream over a std::string that behaves like a file: seeks may go past the end, and a write
// there extends the content, filling the skipped bytes with `fill`. The block writer places
// children before their parents are written, so an output stream must allow that.
#include <algorithm>
#include <cstring>
#include <string>

#include "stream/stream.h"

namespace qm::test {

class ByteStream : public Stream {
 public:
  explicit ByteStream(std::string initial = {}, char fill = '\0') : bytes(std::move(initial)), fill_(fill) {}

  std::int64_t read(void* buffer, std::size_t count) override {
    if (position >= bytes.size()) return 0;
    std::size_t n = std::min<std::size_t>(count, bytes.size() - position);
    std::memcpy(buffer, bytes.data() + position, n);
    position += n;
    return static_cast<std::int64_t>(n);
  }
  std::int64_t write(const void* buffer, std::size_t count) override {
    if (bytes.size() < position + count) bytes.resize(position + count, fill_);
    std::memcpy(bytes.data() + position, buffer, count);
    position += count;
    return static_cast<std::int64_t>(count);
  }
  std::int64_t tell() override { return static_cast<std::int64_t>(position); }
  std::int64_t seek(std::int64_t offset, int origin) override {
    std::int64_t base = origin == kSeekSet ? 0 : origin == kSeekCur ? static_cast<std::int64_t>(position)
                                             : origin == kSeekEnd   ? static_cast<std::int64_t>(bytes.size())
                                                                    : -1;
    if (base < 0 || base + offset < 0) return -1;
    position = static_cast<std::size_t>(base + offset);
    return static_cast<std::int64_t>(position);
  }

  std::string bytes;
  std::size_t position = 0;

 private:
  char fill_;
};

}  // namespace qm::test
