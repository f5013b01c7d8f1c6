#include "container/compressed_stream.h"

#include <bit>

#include "container/decoder_stream.h"
#include "container/lzss_one_pass.h"
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

namespace {

// The payload lies in memory (a mapped file or a decoded layer): decoded in one pass straight
// into the layer's buffer, and the inner stream closed at once, its bytes no longer needed.
std::unique_ptr<Stream> decodeInMemory(std::unique_ptr<Stream> inner, ByteView memory,
                                       std::unique_ptr<CompressedStream> layer, int window_bits,
                                       int lookahead_bits) {
  LzssOutput decoded;
  const std::uint8_t* payload = memory.data + kCompressedPayloadOffset;
  std::uint64_t payload_size = memory.size - kCompressedPayloadOffset;
  bool ok = decodeLzssWhole(payload, static_cast<std::size_t>(payload_size), window_bits, lookahead_bits, 0,
                            &decoded);
  // As the incremental decoder's stream does, the inner stream's close status is not asked.
  streamClose(inner.get());
  if (!ok) return nullptr;
  layer->content()->adopt(std::move(decoded.bytes), decoded.size, decoded.capacity);
  return layer;
}

// Otherwise the payload is pulled through the incremental decoder piece by piece.
std::unique_ptr<Stream> decodeFromStream(std::unique_ptr<Stream> inner, std::unique_ptr<CompressedStream> layer,
                                         int window_bits, int lookahead_bits) {
  auto slice = SliceStream::open(std::move(inner), kCompressedPayloadOffset, 0);
  if (!slice) return nullptr;
  auto decoder = DecoderStream::create(std::move(slice), window_bits, lookahead_bits);
  if (!decoder) return nullptr;
  copyAll(decoder.get(), layer->content());
  if (decoder->close() != 0) return nullptr;
  return layer;
}

bool validWidths(int window_bits, int lookahead_bits) {
  return window_bits >= Decoder::kMinWindowBits && window_bits <= Decoder::kMaxWindowBits &&
         lookahead_bits >= Decoder::kMinLookaheadBits && lookahead_bits < window_bits;
}

}  // namespace

std::unique_ptr<Stream> openCompressed(std::unique_ptr<Stream> inner, const ContainerHeader& header, Failure* why) {
  const Failure malformed{FailureReason::kContainerMalformed, 0};
  if (!inner || header.container_type != kContainerCompressed ||
      header.type_version != kContainerVersion) {
    return fail(why, malformed);
  }
  streamSeek(inner.get(), kContainerHeaderSize, kSeekSet);
  StreamReader reader(inner.get());
  std::uint32_t lookahead_field = 0;
  std::uint32_t window_size = 0;
  if (!reader.readU32BigEndian(lookahead_field) || !reader.readU32BigEndian(window_size)) {
    return fail(why, malformed);
  }
  // Only the trailing zeros count, so a size that is not a power of two still gives bits.
  int window_bits = window_size == 0 ? 0 : std::countr_zero(window_size);
  auto lookahead_bits = static_cast<std::uint8_t>(lookahead_field & 0xFF);
  if (!validWidths(window_bits, lookahead_bits)) return fail(why, malformed);
  auto layer = std::make_unique<CompressedStream>(header, window_size, lookahead_bits);
  ByteView memory = inner->contents();
  std::unique_ptr<Stream> decoded =
      memory.inMemory() && memory.size >= static_cast<std::uint64_t>(kCompressedPayloadOffset)
          ? decodeInMemory(std::move(inner), memory, std::move(layer), window_bits, lookahead_bits)
          : decodeFromStream(std::move(inner), std::move(layer), window_bits, lookahead_bits);
  if (!decoded) return fail(why, {FailureReason::kCompressedDamaged, 0});
  return decoded;
}

}  // namespace qm
