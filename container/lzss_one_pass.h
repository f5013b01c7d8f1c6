#pragma once
// One-pass decoding of a whole LZSS bitstream held in memory (the compressed container's
// payload). It gives exactly the bytes the incremental decoder gives for the same input, but
// in one tight loop: fields come from a 64-bit window of the input instead of bit by bit, and
// the output itself serves as the window, since the decoded file is kept whole anyway.
#include <cstddef>
#include <cstdint>

#include "memory/large_buffer.h"

namespace qm {

struct LzssOutput {
  LargeBuffer bytes;
  std::uint64_t size = 0;      // decoded bytes
  std::uint64_t capacity = 0;  // allocated bytes (at least size)
};

// Decodes every whole item of `input`; a trailing item cut short, and padding bits, end the
// output as they end the incremental decoder's. False for parameters the incremental decoder
// refuses or when memory runs out. `size_hint`: the expected output size (0 when unknown); the
// buffer starts there and grows geometrically.
bool decodeLzssWhole(const std::uint8_t* input, std::size_t input_size, int window_bits, int lookahead_bits,
                     std::uint64_t size_hint, LzssOutput* output);

}  // namespace qm
