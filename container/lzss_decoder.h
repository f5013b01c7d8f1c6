#pragma once
// Incremental LZSS decoder for the compressed container's bitstream: a one-bit tag before each
// item; 1 = an 8-bit literal, 0 = a back-reference made of an index (distance - 1) and a count
// (length - 1), each split into a high and a low part of at most 8 bits. Bits are taken most
// significant first. Input is pushed with sink and output pulled with poll, in any portions;
// memory is the input buffer plus the window, nothing else.
#include <cstddef>
#include <cstdint>
#include <memory>

namespace qm {

enum DecoderSinkResult : int { kSinkTaken = 0, kSinkFull = 1, kSinkNullArgument = -1 };
enum DecoderPollResult : int {
  kPollNeedsInput = 0,
  kPollOutputFull = 1,
  kPollNullArgument = -1,
  kPollUnknownState = -2,
};
enum DecoderFinishResult : int { kFinishDone = 0, kFinishMore = 1, kFinishNullArgument = -1 };

class Decoder {
 public:
  enum State : std::uint8_t {
    kTagBit = 0,
    kYieldLiteral = 1,
    kIndexHigh = 2,
    kIndexLow = 3,
    kCountHigh = 4,
    kCountLow = 5,
    kYieldBackReference = 6,
  };

  static constexpr int kMinWindowBits = 4;
  static constexpr int kMaxWindowBits = 15;
  static constexpr int kMinLookaheadBits = 3;

  // Null when window_bits is outside 4..15, input_buffer_size is 0 or above 65535,
  // lookahead_bits is below 3, or lookahead_bits is not smaller than window_bits.
  static std::unique_ptr<Decoder> create(std::size_t input_buffer_size, int window_bits,
                                         int lookahead_bits);

  // Takes min(count, free space) bytes: kSinkTaken, or kSinkFull (nothing taken) when the
  // input buffer has no room.
  int sink(const std::uint8_t* bytes, std::size_t count, std::size_t* consumed);
  // Decodes into output: kPollOutputFull when it filled it, kPollNeedsInput when the input ran
  // out first. A field is never taken half: the decoder suspends before it instead.
  int poll(std::uint8_t* output, std::size_t output_size, std::size_t* produced);
  // kFinishDone once the input is exhausted with no back-reference pending, else kFinishMore.
  int finish() const;

  State state() const { return static_cast<State>(state_); }

 private:
  Decoder(std::size_t input_buffer_size, int window_bits, int lookahead_bits);
  std::uint16_t getBits(int count);
  // One state step; returns the state it leads to (the same one when it cannot go on).
  std::uint8_t step(std::uint8_t* output, std::size_t output_size, std::size_t* produced);
  std::uint8_t yieldBackReference(std::uint8_t* output, std::size_t output_size,
                                  std::size_t* produced);
  // While plenty of input is buffered, decodes whole items at once; every field ends exactly as
  // the bit-by-bit steps would leave it.
  void decodeWholeItems(std::uint8_t* output, std::size_t output_size, std::size_t* produced);
  std::uint8_t* window() { return buffers_.get() + input_buffer_size_; }

  std::uint16_t input_size_ = 0;
  std::uint16_t input_index_ = 0;
  std::uint16_t output_count_ = 0;
  std::uint16_t output_index_ = 0;
  std::uint16_t head_index_ = 0;  // wraps; only its low window bits are used
  std::uint8_t state_ = kTagBit;
  std::uint8_t current_byte_ = 0;
  std::uint8_t bit_mask_ = 0;  // next bit of current_byte_; 0 = take a new byte
  std::uint8_t window_bits_;
  std::uint8_t lookahead_bits_;
  std::uint16_t input_buffer_size_;
  std::uint16_t window_mask_;
  std::unique_ptr<std::uint8_t[]> buffers_;  // input buffer, then the window
};

}  // namespace qm
