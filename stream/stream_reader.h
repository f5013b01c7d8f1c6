#pragma once
// Typed little-endian cursor over a stream (plus the big-endian 32-bit read of the container
// header). Every transfer seeks to base + offset first, so other code may move the stream in
// between; a transfer that does not complete leaves the offset unchanged.
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "base/small_string.h"
#include "stream/stream.h"

namespace qm {

class StreamReader {
 public:
  explicit StreamReader(Stream* stream) : stream_(stream), base_(streamTell(stream)) {}
  StreamReader(Stream* stream, std::int64_t base) : stream_(stream), base_(base) {}

  bool readBytes(void* buffer, std::size_t n);
  bool writeBytes(const void* buffer, std::size_t n);

  template <class T>
  bool read(T& value) {
    static_assert(std::is_arithmetic_v<T>);
    return readBytes(&value, sizeof value);
  }
  template <class T>
  bool write(T value) {
    static_assert(std::is_arithmetic_v<T>);
    return writeBytes(&value, sizeof value);
  }
  bool readU32BigEndian(std::uint32_t& value);
  // Appends n bytes of the stream to the text, zero bytes included.
  bool readText(SmallString& text, std::size_t n);
  void skip(std::uint64_t n) { offset_ += n; }

  Stream* stream() const { return stream_; }
  std::int64_t base() const { return base_; }
  std::uint64_t offset() const { return offset_; }

 private:
  bool seekToCursor();

  Stream* stream_;
  std::int64_t base_;
  std::uint64_t offset_ = 0;
};

}  // namespace qm
