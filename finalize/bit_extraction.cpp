#include "finalize/bit_extraction.h"

namespace qm {

namespace {

int bitAt(const std::uint8_t* data, std::uint8_t index, bool little_endian) {
  int shift = little_endian ? index % 8 : 7 - index % 8;
  return (data[index / 8] >> shift) & 1;
}

}  // namespace

std::uint64_t extractBits(const std::uint8_t* data, std::size_t length, std::uint8_t bit_position,
                          std::uint8_t bit_count, bool little_endian) {
  std::size_t end_byte = (static_cast<std::size_t>(bit_position) + bit_count + 7) / 8;
  if (end_byte > length || data == nullptr) return 0;
  std::uint64_t value = 0;
  // Little-endian values are walked from their most significant bit down, big-endian ones from
  // their first bit up; either way each step shifts the result left and adds one bit.
  std::uint8_t index = little_endian ? static_cast<std::uint8_t>(bit_position + bit_count - 1) : bit_position;
  for (std::uint8_t remaining = bit_count; remaining != 0; --remaining) {
    value = (value << 1) | static_cast<std::uint64_t>(bitAt(data, index, little_endian));
    index = little_endian ? static_cast<std::uint8_t>(index - 1) : static_cast<std::uint8_t>(index + 1);
  }
  return value;
}

}  // namespace qm
