#include "stream/compressed_stream.h"

#include <bit>

#include "stream/decoder_stream.h"
#include "stream/slice_stream.h"
#include "stream/stream_reader.h"

namespace qm {

std::int64_t CompressedStream::read(void* buffer, std::size_t count) {
  return streamRead(content_.get(), buffer, count);
}

std::int64_t CompressedStream::write(const void* buffer, std::size_t count) {
  return streamWrite(content_.get(), buffer, count);
}

std::int64_t CompressedStream::tell() { return streamTell(content_.get()); }

std::int64_t CompressedStream::seek(std::int64_t offset, int origin) {
  return streamSeek(content_.get(), offset, origin);
}

int CompressedStream::close() {
  int status = streamClose(content_.get());
  content_.reset();
  return status;
}

std::unique_ptr<Stream> openCompressed(std::unique_ptr<Stream> inner, const ContainerHeader& header) {
  if (!inner || header.container_type != kContainerCompressed ||
      header.type_version != kContainerVersion) {
    return nullptr;
  }
  streamSeek(inner.get(), kContainerHeaderSize, kSeekSet);
  StreamReader reader(inner.get());
  std::uint32_t lookahead_field = 0;
  std::uint32_t window_size = 0;
  if (!reader.readU32BigEndian(lookahead_field) || !reader.readU32BigEndian(window_size)) {
    return nullptr;
  }
  // Only the trailing zeros count, so a size that is not a power of two still gives bits.
  int window_bits = window_size == 0 ? 0 : std::countr_zero(window_size);
  auto lookahead_bits = static_cast<std::uint8_t>(lookahead_field & 0xFF);
  auto layer = std::make_unique<CompressedStream>(header, window_size, lookahead_bits);

  auto slice = SliceStream::open(std::move(inner), kCompressedPayloadOffset, 0);
  if (!slice) return nullptr;
  auto decoder = DecoderStream::create(std::move(slice), window_bits, lookahead_bits);
  if (!decoder) return nullptr;
  copyAll(decoder.get(), layer->content());
  if (decoder->close() != 0) return nullptr;
  return layer;
}

}  // namespace qm
