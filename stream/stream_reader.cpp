#include "stream/stream_reader.h"

namespace qm {

bool StreamReader::seekToCursor() {
  std::int64_t target = base_ + static_cast<std::int64_t>(offset_);
  return streamSeek(stream_, target, kSeekSet) == target;
}

bool StreamReader::readBytes(void* buffer, std::size_t n) {
  if (!stream_ || !seekToCursor()) return false;
  if (streamRead(stream_, buffer, n) != static_cast<std::int64_t>(n)) return false;
  offset_ += n;
  return true;
}

bool StreamReader::writeBytes(const void* buffer, std::size_t n) {
  if (!stream_ || !seekToCursor()) return false;
  if (streamWrite(stream_, buffer, n) != static_cast<std::int64_t>(n)) return false;
  offset_ += n;
  return true;
}

bool StreamReader::readU32BigEndian(std::uint32_t& value) {
  unsigned char bytes[4];
  if (!readBytes(bytes, 4)) return false;
  value = (std::uint32_t{bytes[0]} << 24) | (std::uint32_t{bytes[1]} << 16) |
          (std::uint32_t{bytes[2]} << 8) | std::uint32_t{bytes[3]};
  return true;
}

bool StreamReader::readText(SmallString& text, std::size_t n) {
  std::size_t before = text.size();
  char* tail = text.extend(n);
  if (readBytes(tail, n)) return true;
  text.truncate(before);
  return false;
}

}  // namespace qm
