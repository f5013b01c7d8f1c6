#pragma once
// Shorthands for the regex tests: the first match's text ("<none>" when there is none,
// "<invalid>" when the pattern does not compile) or its offset.
#include <string>
#include <string_view>

#include "regex/regex.h"

namespace qm::test {

inline std::string firstMatch(std::string_view pattern, std::string_view text, unsigned options = kRegexNone) {
  Regex regex = Regex::compile(pattern, options);
  if (!regex.ok()) return "<invalid>";
  RegexMatch match;
  if (!regex.search(text, 0, &match)) return "<none>";
  return std::string(match.group(text, 0));
}

// Offset of the first match, npos when there is none.
inline std::size_t matchBegin(std::string_view pattern, std::string_view text) {
  RegexMatch match;
  if (!Regex::compile(pattern).search(text, 0, &match)) return std::string::npos;
  return match.groups[0].begin;
}

}  // namespace qm::test
