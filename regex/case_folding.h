#pragma once
// Simple one-to-one case mapping of code points for case-insensitive matching: ASCII, Latin-1,
// Latin Extended-A, Greek and Cyrillic. Anything else maps to itself.
#include <cstdint>

namespace qm {

std::uint32_t toLowerCase(std::uint32_t code);
std::uint32_t toUpperCase(std::uint32_t code);

}  // namespace qm
