#pragma once
// Shape checks of log and status lines, with the program's own regular expressions (which also
// keeps the standard library's costly <regex> out of the test builds).
#include <cstddef>
#include <string>
#include <string_view>

#include "regex/regex.h"

namespace qm::test {

// How many bytes at the start of `text` `pattern` matches; npos when it matches none there.
inline std::size_t shapedPrefixLength(std::string_view text, std::string_view pattern) {
  Regex regex = Regex::compile(pattern);
  RegexMatch match;
  if (!regex.ok() || !regex.search(text, 0, &match) || match.groups[0].begin != 0) return std::string::npos;
  return match.groups[0].end;
}

// True when `pattern` matches the whole of `text`.
inline bool hasShape(std::string_view text, std::string_view pattern) {
  return shapedPrefixLength(text, pattern) == text.size();
}

// `text` with every match of `pattern` replaced ($1 and the like refer to groups).
inline std::string replacedAll(std::string_view text, std::string_view pattern, std::string_view replacement) {
  return std::string(Regex::compile(pattern).replace(text, replacement).view());
}

}  // namespace qm::test
