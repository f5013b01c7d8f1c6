#include "container/lzss_decoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

namespace qm {
namespace {

constexpr std::uint16_t kNoBits = 0xFFFF;

}  // namespace

std::unique_ptr<Decoder> Decoder::create(std::size_t input_buffer_size, int window_bits,
                                         int lookahead_bits) {
  if (window_bits < kMinWindowBits || window_bits > kMaxWindowBits) return nullptr;
  if (input_buffer_size == 0 || input_buffer_size > 0xFFFF) return nullptr;
  if (lookahead_bits < kMinLookaheadBits || lookahead_bits >= window_bits) return nullptr;
  std::unique_ptr<Decoder> decoder(new (std::nothrow)
                                       Decoder(input_buffer_size, window_bits, lookahead_bits));
  if (!decoder || !decoder->buffers_) return nullptr;
  return decoder;
}

Decoder::Decoder(std::size_t input_buffer_size, int window_bits, int lookahead_bits)
    : window_bits_(static_cast<std::uint8_t>(window_bits)),
      lookahead_bits_(static_cast<std::uint8_t>(lookahead_bits)),
      input_buffer_size_(static_cast<std::uint16_t>(input_buffer_size)),
      window_mask_(static_cast<std::uint16_t>((1u << window_bits) - 1)),
      buffers_(new (std::nothrow) std::uint8_t[input_buffer_size + (std::size_t{1} << window_bits)]()) {}

int Decoder::sink(const std::uint8_t* bytes, std::size_t count, std::size_t* consumed) {
  if (!bytes || !consumed) return kSinkNullArgument;
  std::size_t room = input_buffer_size_ - input_size_;
  if (room == 0) {
    *consumed = 0;
    return kSinkFull;
  }
  std::size_t taken = std::min(count, room);
  std::copy_n(bytes, taken, buffers_.get() + input_size_);
  input_size_ = static_cast<std::uint16_t>(input_size_ + taken);
  *consumed = taken;
  return kSinkTaken;
}

std::uint16_t Decoder::getBits(int count) {
  if (count > 15) return kNoBits;
  if (count == 0) return 0;
  // Never start a field the buffered bits cannot finish: suspending mid-field would lose it.
  if (input_size_ == 0 && bit_mask_ < (1u << (count - 1))) return kNoBits;
  // Locals, so that the compiler need not reload the fields after every byte taken.
  unsigned mask = bit_mask_;
  unsigned byte = current_byte_;
  unsigned value = 0;
  for (int i = 0; i < count; ++i) {
    if (mask == 0) {
      if (input_size_ == 0) {
        bit_mask_ = 0;
        return kNoBits;
      }
      byte = buffers_[input_index_++];
      current_byte_ = static_cast<std::uint8_t>(byte);
      if (input_index_ == input_size_) input_index_ = input_size_ = 0;
      mask = 0x80;
    }
    value = (value << 1) | ((byte & mask) != 0 ? 1u : 0u);
    mask >>= 1;
  }
  bit_mask_ = static_cast<std::uint8_t>(mask);
  return static_cast<std::uint16_t>(value);
}

std::uint8_t Decoder::yieldBackReference(std::uint8_t* output, std::size_t output_size,
                                         std::size_t* produced) {
  const std::size_t taken = std::min<std::size_t>(output_count_, output_size - *produced);
  std::size_t k = taken;  // left for the byte-wise copy
  std::uint8_t* win = window();
  std::uint8_t* out = output + *produced;
  std::uint16_t head = head_index_;
  std::size_t from = static_cast<std::uint16_t>(head - output_index_) & window_mask_;
  std::size_t to = head & window_mask_;
  std::size_t window_size = std::size_t{window_mask_} + 1;
  if (k <= output_index_ && from + k <= window_size && to + k <= window_size) {
    // Neither range wraps and no byte is read after being written: copy in blocks.
    std::memcpy(out, win + from, k);
    std::memmove(win + to, out, k);
    head = static_cast<std::uint16_t>(head + k);
    k = 0;
  }
  for (std::size_t i = 0; i < k; ++i) {
    std::uint8_t c = win[static_cast<std::uint16_t>(head - output_index_) & window_mask_];
    out[i] = c;
    win[head & window_mask_] = c;
    ++head;
  }
  head_index_ = head;
  *produced += taken;
  output_count_ = static_cast<std::uint16_t>(output_count_ - taken);
  return output_count_ == 0 ? kTagBit : kYieldBackReference;
}

std::uint8_t Decoder::step(std::uint8_t* output, std::size_t output_size, std::size_t* produced) {
  switch (state_) {
    case kTagBit: {
      std::uint16_t bit = getBits(1);
      if (bit == kNoBits) return kTagBit;
      if (bit) return kYieldLiteral;
      if (window_bits_ > 8) return kIndexHigh;
      output_index_ = 0;
      return kIndexLow;
    }
    case kYieldLiteral: {
      if (*produced >= output_size) return kYieldLiteral;
      std::uint16_t byte = getBits(8);
      if (byte == kNoBits) return kYieldLiteral;
      window()[head_index_++ & window_mask_] = static_cast<std::uint8_t>(byte);
      output[(*produced)++] = static_cast<std::uint8_t>(byte);
      return kTagBit;
    }
    case kIndexHigh: {
      std::uint16_t v = getBits(window_bits_ - 8);
      if (v == kNoBits) return kIndexHigh;
      output_index_ = static_cast<std::uint16_t>(v << 8);
      return kIndexLow;
    }
    case kIndexLow: {
      std::uint16_t v = getBits(std::min<int>(window_bits_, 8));
      if (v == kNoBits) return kIndexLow;
      output_index_ = static_cast<std::uint16_t>((output_index_ | v) + 1);
      output_count_ = 0;
      return lookahead_bits_ > 8 ? kCountHigh : kCountLow;
    }
    case kCountHigh: {
      std::uint16_t v = getBits(lookahead_bits_ - 8);
      if (v == kNoBits) return kCountHigh;
      output_count_ = static_cast<std::uint16_t>(v << 8);
      return kCountLow;
    }
    case kCountLow: {
      std::uint16_t v = getBits(std::min<int>(lookahead_bits_, 8));
      if (v == kNoBits) return kCountLow;
      output_count_ = static_cast<std::uint16_t>((output_count_ | v) + 1);
      return kYieldBackReference;
    }
    case kYieldBackReference:
      return yieldBackReference(output, output_size, produced);
    default:
      return state_;
  }
}

namespace {

// Reads whole fields of at most 8 bits; left counts the bits of byte not yet taken.
struct BitCursor {
  const std::uint8_t* data;
  std::size_t index;
  unsigned byte;
  unsigned left;

  unsigned take(unsigned n) {
    if (left >= n) {
      left -= n;
      return (byte >> left) & ((1u << n) - 1);
    }
    unsigned need = n - left;
    unsigned high = byte & ((1u << left) - 1);
    byte = data[index++];
    left = 8 - need;
    return (high << need) | (byte >> left);
  }
};

// An item has at most 1 + 15 + 14 bits, so it takes at most 4 new bytes; one more keeps the
// fast path from ever taking the last buffered byte (whose taking empties the buffer).
constexpr std::size_t kWholeItemMargin = 5;

}  // namespace

void Decoder::decodeWholeItems(std::uint8_t* output, std::size_t output_size, std::size_t* produced) {
  BitCursor bits{buffers_.get(), input_index_, current_byte_,
                 bit_mask_ ? static_cast<unsigned>(std::countr_zero(bit_mask_)) + 1 : 0u};
  const unsigned index_high = window_bits_ > 8 ? window_bits_ - 8u : 0u;
  const unsigned index_low = std::min<unsigned>(window_bits_, 8);
  const unsigned count_high = lookahead_bits_ > 8 ? lookahead_bits_ - 8u : 0u;
  const unsigned count_low = std::min<unsigned>(lookahead_bits_, 8);
  std::uint8_t* win = window();
  while (state_ == kTagBit && bits.index + kWholeItemMargin <= input_size_ && *produced < output_size) {
    if (bits.take(1)) {
      auto c = static_cast<std::uint8_t>(bits.take(8));
      win[head_index_++ & window_mask_] = c;
      output[(*produced)++] = c;
      continue;
    }
    unsigned index = index_high ? bits.take(index_high) << 8 : 0u;
    output_index_ = static_cast<std::uint16_t>((index | bits.take(index_low)) + 1);
    unsigned count = count_high ? bits.take(count_high) << 8 : 0u;
    output_count_ = static_cast<std::uint16_t>((count | bits.take(count_low)) + 1);
    state_ = yieldBackReference(output, output_size, produced);
  }
  input_index_ = static_cast<std::uint16_t>(bits.index);
  current_byte_ = static_cast<std::uint8_t>(bits.byte);
  bit_mask_ = static_cast<std::uint8_t>(bits.left ? 1u << (bits.left - 1) : 0u);
}

int Decoder::poll(std::uint8_t* output, std::size_t output_size, std::size_t* produced) {
  if (!output || !produced) return kPollNullArgument;
  *produced = 0;
  for (;;) {
    if (state_ == kTagBit) decodeWholeItems(output, output_size, produced);
    if (state_ > kYieldBackReference) return kPollUnknownState;
    std::uint8_t next = step(output, output_size, produced);
    if (next == state_) return *produced == output_size ? kPollOutputFull : kPollNeedsInput;
    state_ = next;
  }
}

int Decoder::finish() const {
  if (state_ == kYieldBackReference) return kFinishMore;
  return input_size_ == 0 ? kFinishDone : kFinishMore;
}

}  // namespace qm
