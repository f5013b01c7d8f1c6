#pragma once
// Takes a channel's raw bits out of a record's bytes.
#include <cstddef>
#include <cstdint>

namespace qm {

// Returns the bit_count bits starting at bit_position as an unsigned value, or 0 when they do
// not lie wholly inside the buffer. Position and count are 8-bit quantities on purpose: bit
// indexes wrap at 256, which bounds every access to the first 32 bytes after the check.
std::uint64_t extractBits(const std::uint8_t* data, std::size_t length, std::uint8_t bit_position,
                          std::uint8_t bit_count, bool little_endian);

}  // namespace qm
