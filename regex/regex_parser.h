#pragma once
// Parsing of a pattern text into a node tree; none for a malformed pattern.
#include <optional>
#include <string_view>

#include "regex/regex_node.h"

namespace qm {

// Repeat counts above this are refused, so that {m,n} cannot blow up the program.
inline constexpr int kMaxRepeatCount = 1000;
// Deeper group nesting is refused, so that parsing and compiling cannot exhaust the stack.
inline constexpr int kMaxGroupNesting = 200;

std::optional<ParsedPattern> parsePattern(std::string_view pattern);

}  // namespace qm
