#include "container/lzss_one_pass.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "container/lzss_decoder.h"
#include "memory/page_populator.h"

namespace qm {
namespace {

// Back-references are copied in blocks of up to 16 bytes that may run past their end; the
// output always keeps this much room beyond the longest item.
constexpr std::uint64_t kCopyOverrun = 16;
// Without a hint, the first buffer assumes this ratio; it doubles when that was too little.
constexpr std::uint64_t kGuessedRatio = 4;

std::uint64_t loadBigEndian(const std::uint8_t* bytes) {
  std::uint64_t value;
  std::memcpy(&value, bytes, sizeof value);
  return __builtin_bswap64(value);
}

bool reserveOutput(LzssOutput* output, std::uint64_t needed) {
  if (output->capacity >= needed) return true;
  std::uint64_t capacity = output->capacity * 2 > needed ? output->capacity * 2 : needed;
  if (!growLargeBuffer(output->bytes, static_cast<std::size_t>(capacity))) return false;
  output->capacity = capacity;
  return true;
}

// Copies length bytes from distance back, byte by byte where source and target overlap, as the
// window would.
inline void copyBack(std::uint8_t* out, std::uint64_t at, unsigned distance, unsigned length) {
  std::uint8_t* target = out + at;
  if (distance > at) {
    // Before the first byte the window still holds its initial zeros.
    for (std::uint64_t i = at; i < at + length; ++i) out[i] = i >= distance ? out[i - distance] : 0;
    return;
  }
  const std::uint8_t* source = target - distance;
  if (distance >= 16) {
    // Each block reads only bytes written before it starts.
    for (unsigned i = 0; i < length; i += 16) std::memcpy(target + i, source + i, 16);
  } else if (distance >= 8) {
    for (unsigned i = 0; i < length; i += 8) std::memcpy(target + i, source + i, 8);
  } else if (distance == 1) {
    std::memset(target, *source, length);
  } else {
    for (unsigned i = 0; i < length; ++i) target[i] = source[i];
  }
}

class OnePassDecoder {
 public:
  OnePassDecoder(int window_bits, int lookahead_bits, LzssOutput* output)
      : window_bits_(static_cast<unsigned>(window_bits)),
        lookahead_bits_(static_cast<unsigned>(lookahead_bits)),
        reference_bits_(1 + window_bits_ + lookahead_bits_),
        longest_item_(std::uint64_t{1} << lookahead_bits),
        window_size_(std::uint64_t{1} << window_bits),
        short_items_(longest_item_ <= kShortItem),
        output_(output),
        out_(output->bytes.get()) {}

  bool decode(const std::uint8_t* input, std::size_t input_size) {
    // While eight bytes can be loaded, a 64-bit buffer is topped up to at least 56 bits at a
    // time, enough for a fixed number of whole steps (an item, or a pair of literals); shifting
    // consumed bits out is all that lies between one step and the next.
    const unsigned longest_bits = reference_bits_ > 2 * kLiteralBits ? reference_bits_ : 2 * kLiteralBits;
    const unsigned steps_per_fill = 56 / longest_bits;
    std::size_t next = 0;  // the first input byte not yet wholly in the buffer
    std::uint64_t bits = 0;
    unsigned count = 0;  // valid bits at the top of `bits`
    while (input_size >= 8 && next <= input_size - 8) {
      if (short_items_ && at_ >= window_size_) {
        // From here on the faster loop takes every step up to the last few bytes.
        if (!decodeRuns(input, input_size, next, bits, count)) return false;
        break;
      }
      if (!makeRoom(steps_per_fill)) return false;
      populator_->wrote(at_);
      bits |= loadBigEndian(input + next) >> count;
      next += (63 - count) >> 3;
      count |= 56;
      for (unsigned i = 0; i < steps_per_fill; ++i) {
        unsigned used = decodeStep(bits);
        bits <<= used;
        count -= used;
      }
    }
    std::uint64_t bit = std::uint64_t{next} * 8 - count;
    // The last few bytes (fewer than 16: the buffer may have held up to 63 bits), padded with
    // zeros; an item that the real bits cannot hold ends it.
    const std::uint64_t total_bits = std::uint64_t{input_size} * 8;
    const std::uint64_t tail_start = bit >> 3;
    std::uint8_t tail[16 + 8] = {};
    if (input_size > tail_start) std::memcpy(tail, input + tail_start, input_size - tail_start);
    while (bit < total_bits) {
      std::uint64_t window = loadBigEndian(tail + ((bit >> 3) - tail_start)) << (bit & 7);
      std::uint64_t needed = window >> 63 ? kLiteralBits : reference_bits_;
      if (needed > total_bits - bit) break;
      if (!makeRoom()) return false;
      bit += decodeItem(window);
    }
    output_->size = at_;
    populator_.reset();  // no pages beyond the output
    return true;
  }

 private:
  static constexpr unsigned kLiteralBits = 9;
  static constexpr std::uint64_t kShortItem = 16;

  bool makeRoom(unsigned items = 1) {
    std::uint64_t needed = items * longest_item_ + kCopyOverrun;
    if (output_->capacity - at_ >= needed) return true;
    // The buffer moves: the populator must let go of it first.
    populator_.reset();
    if (!reserveOutput(output_, at_ + needed)) return false;
    out_ = output_->bytes.get();
    populator_ = std::make_unique<PagePopulator>(out_, output_->capacity);
    populator_->wrote(at_);
    return true;
  }

  // The main loop where every item fits one 16-byte copy and a whole window lies behind:
  // each step takes a run of up to four literals and the reference that ends it, without a
  // branch on which kind of item comes next (as good as random in logger data, so a branch
  // would often guess wrong). A run of four is not followed by a reference in the same step:
  // the copy then still happens, from a place the bits after the run make up, and its bytes
  // are overwritten by the items to come. The state lives in locals, as byte stores would
  // otherwise make the compiler reload the members after each of them. Runs while eight input
  // bytes can be loaded; false when memory runs out.
  bool decodeRuns(const std::uint8_t* input, std::size_t input_size, std::size_t& next_inout,
                  std::uint64_t& bits_inout, unsigned& count_inout) {
    constexpr unsigned kRun = 4;
    constexpr std::uint64_t kReportEvery = std::uint64_t{64} << 10;
    const std::uint64_t step_room = kRun + longest_item_ + kCopyOverrun;
    const unsigned window_bits = window_bits_;
    const unsigned lookahead_bits = lookahead_bits_;
    const unsigned reference_bits = reference_bits_;
    std::size_t next = next_inout;
    std::uint64_t bits = bits_inout;
    unsigned count = count_inout;
    std::uint8_t* out = out_;
    std::uint64_t at = at_;
    std::uint64_t check_at = 0;  // where room and the populator are looked at next
    while (next <= input_size - 8) {
      if (at >= check_at) {
        at_ = at;
        if (!makeRoom(kRun + 1)) return false;
        populator_->wrote(at);
        out = out_;
        check_at = std::min(at + kReportEvery, output_->capacity - step_room);
      }
      bits |= loadBigEndian(input + next) >> count;
      next += (63 - count) >> 3;
      count |= 56;
      // The flags of four items in a row, as if each were a literal: the run is how many of
      // them are set from the first on.
      const unsigned flags = static_cast<unsigned>((bits >> 63) | ((bits >> 53) & 2) | ((bits >> 43) & 4) |
                                                   ((bits >> 33) & 8));
      const unsigned run = static_cast<unsigned>(__builtin_ctz(~flags));
      const std::uint32_t literals =
          static_cast<std::uint32_t>(((bits >> 55) & 0xFF) | ((bits >> 38) & 0xFF00) | ((bits >> 21) & 0xFF0000) |
                                     ((bits >> 4) & 0xFF000000));
      std::memcpy(out + at, &literals, 4);
      at += run;
      const std::uint64_t rest = bits << (kLiteralBits * run);
      const std::uint64_t reference = run < kRun;
      const unsigned distance = static_cast<unsigned>((rest << 1) >> (64 - window_bits)) + 1;
      const unsigned length = static_cast<unsigned>((rest << (1 + window_bits)) >> (64 - lookahead_bits)) + 1;
      if (__builtin_expect(reference & (distance < length), 0)) {
        copyBack(out, at, distance, length);  // overlaps its own output
      } else {
        // Source and target may overlap (a distance below 16): the block goes through a local.
        std::uint8_t block[16];
        std::memcpy(block, out + at - distance, 16);
        std::memcpy(out + at, block, 16);
      }
      at += length & (0 - reference);
      const unsigned used = kLiteralBits * run + (reference_bits & static_cast<unsigned>(0 - reference));
      bits <<= used;
      count -= used;
    }
    at_ = at;
    next_inout = next;
    bits_inout = bits;
    count_inout = count;
    return true;
  }

  // Two literals in a row, common in data that compresses poorly, are taken in one step.
  unsigned decodeStep(std::uint64_t window) {
    if ((window >> 63) && ((window >> 54) & 1)) {
      out_[at_] = static_cast<std::uint8_t>(window >> 55);
      out_[at_ + 1] = static_cast<std::uint8_t>(window >> 46);
      at_ += 2;
      return 2 * kLiteralBits;
    }
    return decodeItem(window);
  }

  // `window`: the next input bits, most significant first. Returns the bits the item took.
  unsigned decodeItem(std::uint64_t window) {
    if (window >> 63) {
      out_[at_++] = static_cast<std::uint8_t>(window >> 55);
      return kLiteralBits;
    }
    // The index is distance - 1 and the count length - 1; their high and low parts lie next
    // to each other, so each reads as one field.
    unsigned distance = static_cast<unsigned>((window << 1) >> (64 - window_bits_)) + 1;
    unsigned length = static_cast<unsigned>((window << (1 + window_bits_)) >> (64 - lookahead_bits_)) + 1;
    copyBack(out_, at_, distance, length);
    at_ += length;
    return reference_bits_;
  }

  const unsigned window_bits_;
  const unsigned lookahead_bits_;
  const unsigned reference_bits_;
  const std::uint64_t longest_item_;
  const std::uint64_t window_size_;
  const bool short_items_;  // every item fits one 16-byte copy
  LzssOutput* output_;
  std::uint8_t* out_;
  std::uint64_t at_ = 0;
  std::unique_ptr<PagePopulator> populator_ = std::make_unique<PagePopulator>(out_, output_->capacity);
};

}  // namespace

bool decodeLzssWhole(const std::uint8_t* input, std::size_t input_size, int window_bits, int lookahead_bits,
                     std::uint64_t size_hint, LzssOutput* output) {
  if (window_bits < Decoder::kMinWindowBits || window_bits > Decoder::kMaxWindowBits ||
      lookahead_bits < Decoder::kMinLookaheadBits || lookahead_bits >= window_bits || !output ||
      (!input && input_size != 0)) {
    return false;
  }
  std::uint64_t first = size_hint ? size_hint : std::uint64_t{input_size} * kGuessedRatio;
  // Every byte is written before it is read: references before the first byte give zeros
  // without reading, and the bytes a block copy writes beyond an item are overwritten by the next.
  output->bytes =
      allocateUninitialized(static_cast<std::size_t>(first + (std::uint64_t{1} << lookahead_bits) + kCopyOverrun));
  if (!output->bytes) return false;
  output->capacity = first + (std::uint64_t{1} << lookahead_bits) + kCopyOverrun;
  output->size = 0;
  OnePassDecoder decoder(window_bits, lookahead_bits, output);
  return decoder.decode(input, input_size);
}

}  // namespace qm
