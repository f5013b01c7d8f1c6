#pragma once
// The byte-stream interface every layer implements: files, memory buffers, slices of another
// stream, decoders and container layers stack on one another through it.
//
// Results are values, never exceptions: counts, -1 when refused, -2 when the stream does not
// have the operation. Positions and sizes are 64-bit.
#include <cstddef>
#include <cstdint>

namespace qm {

enum SeekOrigin : int { kSeekSet = 0, kSeekCur = 1, kSeekEnd = 2 };

inline constexpr std::int64_t kStreamRefused = -1;
inline constexpr std::int64_t kStreamMissingOp = -2;

// A stream's whole content when it lies in memory as one block of bytes.
struct ByteView {
  const std::uint8_t* data = nullptr;
  std::uint64_t size = 0;
  bool inMemory() const { return data != nullptr; }
};

class Stream {
 public:
  virtual ~Stream() = default;
  virtual std::int64_t read(void* buffer, std::size_t count);
  virtual std::int64_t write(const void* buffer, std::size_t count);
  virtual std::int64_t tell();
  virtual std::int64_t seek(std::int64_t offset, int origin);
  // Releases what the stream holds (and the layers it owns); 0 on success.
  virtual int close();
  // The whole content, when it is in memory: readers may then take the bytes in place instead
  // of copying them out. The view stays valid until the stream is closed, written or destroyed.
  // None (the default) for streams that produce their bytes on demand.
  virtual ByteView contents() { return {}; }
  // Reads `count` bytes at `offset` without moving the position (as pread does), so another
  // thread may read this way while no one else uses the stream. Streams over a file have it;
  // the others give kStreamMissingOp.
  virtual std::int64_t readAt(std::uint64_t offset, void* buffer, std::size_t count);
};

// Generic operations; each tolerates a null stream.
std::int64_t streamRead(Stream* stream, void* buffer, std::size_t count);
std::int64_t streamWrite(Stream* stream, const void* buffer, std::size_t count);
std::int64_t streamTell(Stream* stream);
std::int64_t streamSeek(Stream* stream, std::int64_t offset, int origin);
int streamClose(Stream* stream);
// Size by seeking to the end and back; the position is left where it was. -1 for null.
std::int64_t streamSize(Stream* stream);
bool getPosition(Stream* stream, std::int64_t* position);
// True only when the stream reports exactly the position asked for.
bool setPosition(Stream* stream, std::int64_t position);
// Copies in 4096-byte pieces until a read gives 0 or less; write results are not checked.
void copyAll(Stream* source, Stream* target);

}  // namespace qm
