#pragma once
// A read-only stream that decodes the LZSS bitstream of the stream it owns, pulling 1024 bytes
// of input at a time.
#include <cstdint>
#include <memory>

#include "container/lzss_decoder.h"
#include "stream/stream.h"

namespace qm {

class DecoderStream : public Stream {
 public:
  static constexpr std::size_t kInputChunk = 1024;

  // Null when the inner stream is null or the decoder refuses the parameters.
  static std::unique_ptr<DecoderStream> create(std::unique_ptr<Stream> inner, int window_bits,
                                               int lookahead_bits);

  // Fills the buffer unless the input ends first (then the bytes decoded so far); -1 when the
  // inner stream fails or the decoder reports an error.
  std::int64_t read(void* buffer, std::size_t count) override;
  std::int64_t write(const void*, std::size_t) override { return kStreamRefused; }
  std::int64_t tell() override { return kStreamRefused; }
  std::int64_t seek(std::int64_t, int) override { return kStreamRefused; }
  // Closes the inner stream and drops the decoder; always 0.
  int close() override;

 private:
  DecoderStream(std::unique_ptr<Stream> inner, std::unique_ptr<Decoder> decoder)
      : inner_(std::move(inner)), decoder_(std::move(decoder)) {}
  // Feeds the decoder one chunk of the inner stream. kNothingNew: the inner stream is empty
  // but the decoder still reports work left.
  enum class Refill { kFed, kNothingNew, kEnd, kFailed };
  Refill feedDecoder();

  std::unique_ptr<Stream> inner_;
  std::unique_ptr<Decoder> decoder_;
};

}  // namespace qm
