#pragma once
// Decoding of one UTF-8 character at a byte offset, for patterns and searched texts alike.
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qm {

// A byte that does not start a valid sequence decodes alone to a code unit above the Unicode
// range, so it still matches `.` and the same byte in a pattern but never a real character.
inline constexpr std::uint32_t kInvalidByteBase = 0x110000;
inline constexpr std::uint32_t kLastCodeUnit = kInvalidByteBase + 0xFF;

struct DecodedChar {
  std::uint32_t code = 0;
  std::uint32_t length = 0;  // bytes taken, at least 1
};

// Decodes the character at `pos`, which must be below text.size(). Overlong forms, surrogates
// and values above U+10FFFF are invalid.
DecodedChar decodeUtf8(std::string_view text, std::size_t pos);

}  // namespace qm
