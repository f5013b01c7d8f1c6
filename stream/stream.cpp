#include "stream/stream.h"

namespace qm {

std::int64_t Stream::read(void*, std::size_t) { return kStreamMissingOp; }
std::int64_t Stream::write(const void*, std::size_t) { return kStreamMissingOp; }
std::int64_t Stream::tell() { return kStreamMissingOp; }
std::int64_t Stream::seek(std::int64_t, int) { return kStreamMissingOp; }
int Stream::close() { return 0; }
std::int64_t Stream::readAt(std::uint64_t, void*, std::size_t) { return kStreamMissingOp; }

std::int64_t streamRead(Stream* stream, void* buffer, std::size_t count) {
  return stream ? stream->read(buffer, count) : kStreamMissingOp;
}

std::int64_t streamWrite(Stream* stream, const void* buffer, std::size_t count) {
  return stream ? stream->write(buffer, count) : kStreamMissingOp;
}

std::int64_t streamTell(Stream* stream) { return stream ? stream->tell() : kStreamMissingOp; }

std::int64_t streamSeek(Stream* stream, std::int64_t offset, int origin) {
  return stream ? stream->seek(offset, origin) : kStreamMissingOp;
}

int streamClose(Stream* stream) { return stream ? stream->close() : 0; }

std::int64_t streamSize(Stream* stream) {
  if (!stream) return -1;
  std::int64_t here = stream->tell();
  stream->seek(0, kSeekEnd);
  std::int64_t size = stream->tell();
  stream->seek(here, kSeekSet);
  return size;
}

bool getPosition(Stream* stream, std::int64_t* position) {
  if (!stream || !position) return false;
  *position = stream->tell();
  return true;
}

bool setPosition(Stream* stream, std::int64_t position) {
  return stream && stream->seek(position, kSeekSet) == position;
}

void copyAll(Stream* source, Stream* target) {
  unsigned char chunk[4096];
  for (;;) {
    std::int64_t n = streamRead(source, chunk, sizeof chunk);
    if (n <= 0) return;
    streamWrite(target, chunk, static_cast<std::size_t>(n));
  }
}

}  // namespace qm
