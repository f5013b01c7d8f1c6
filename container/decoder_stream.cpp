#include "container/decoder_stream.h"

#include <cstring>

namespace qm {

std::unique_ptr<DecoderStream> DecoderStream::create(std::unique_ptr<Stream> inner,
                                                     int window_bits, int lookahead_bits) {
  if (!inner) return nullptr;
  std::unique_ptr<Decoder> decoder = Decoder::create(kInputChunk, window_bits, lookahead_bits);
  if (!decoder) return nullptr;
  return std::unique_ptr<DecoderStream>(new DecoderStream(std::move(inner), std::move(decoder)));
}

DecoderStream::Refill DecoderStream::feedDecoder() {
  std::uint8_t scratch[kInputChunk];
  std::memset(scratch, 0, sizeof scratch);
  std::int64_t n = inner_->read(scratch, sizeof scratch);
  if (n < 0) return Refill::kFailed;
  if (n == 0) return decoder_->finish() == kFinishMore ? Refill::kNothingNew : Refill::kEnd;
  std::size_t consumed = 0;
  decoder_->sink(scratch, static_cast<std::size_t>(n), &consumed);
  // Bytes the decoder had no room for are read again next time.
  if (consumed < static_cast<std::size_t>(n)) {
    inner_->seek(-static_cast<std::int64_t>(static_cast<std::size_t>(n) - consumed), kSeekCur);
  }
  return Refill::kFed;
}

std::int64_t DecoderStream::read(void* buffer, std::size_t count) {
  if (count == 0) return 0;
  if (!inner_ || !decoder_) return kStreamRefused;
  auto* out = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  bool starved = false;
  for (;;) {
    std::size_t produced = 0;
    int result = decoder_->poll(out + done, count - done, &produced);
    done += produced;
    if (result == kPollOutputFull) return static_cast<std::int64_t>(count);
    if (result != kPollNeedsInput) return kStreamRefused;
    // Guards against spinning when the input is gone but the decoder still claims work.
    if (starved && produced == 0) return static_cast<std::int64_t>(done);
    Refill refill = feedDecoder();
    if (refill == Refill::kFailed) return kStreamRefused;
    if (refill == Refill::kEnd) return static_cast<std::int64_t>(done);
    starved = refill == Refill::kNothingNew;
  }
}

int DecoderStream::close() {
  streamClose(inner_.get());
  inner_.reset();
  decoder_.reset();
  return 0;
}

}  // namespace qm
