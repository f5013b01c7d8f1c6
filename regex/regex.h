#pragma once
// Regular expressions for the password-file parser: compile once, search with capture groups,
// replace. Backtracking with memoised failures, so the work per search stays bounded by the
// program size times the searched text instead of growing exponentially.
//
// The leftmost match wins; alternatives and quantifiers are tried in the usual order (earlier
// branch first, greedy longest first, lazy shortest first). One difference from plain
// backtracking: a loop that comes back to a state already tried without consuming anything is
// abandoned there, so a quantified group whose body can match empty (like "(a*?)*") may pick
// another valid match than other engines would.
//
// Line handling: "\r\n" counts as one line end. `$` matches before "\n", before "\r\n" (with
// kRegexMultiLine) and at the end of the text; without kRegexMultiLine `^` and `$` match only at
// the very start and the very end of the text. `.` matches any character except "\n" and a "\r"
// that directly precedes "\n".
//
// Text is decoded as UTF-8; a byte that does not begin a valid sequence is one character of its
// own that only `.`, negated classes and the same byte in the pattern match. Classes (\d, \s, \w,
// [:alpha:], \p{XDigit}, ...) are ASCII-only; case-insensitive matching also folds Latin-1,
// Latin Extended-A, Greek and Cyrillic letters.
#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "base/small_string.h"

namespace qm {

enum RegexOptions : unsigned { kRegexNone = 0, kRegexMultiLine = 1, kRegexCaseInsensitive = 2 };

struct RegexMatch {
  struct Group {
    std::size_t begin = 0, end = 0;
    bool matched = false;
  };
  std::vector<Group> groups;  // group 0 = whole match, byte offsets into the text

  // The text of group i; empty when the group did not take part in the match or does not exist.
  std::string_view group(std::string_view text, std::size_t i) const;
};

struct RegexProgram;

class Regex {
 public:
  Regex() = default;  // a regex that did not compile

  // Malformed patterns (unbalanced parentheses or brackets, bad ranges, dangling or malformed
  // quantifiers, unknown escapes or class names, repeat counts above 1000, programs too large)
  // give a regex whose ok() is false.
  static Regex compile(std::string_view pattern, unsigned options = kRegexNone);
  bool ok() const { return program_ != nullptr; }
  std::size_t groupCount() const;

  // Searches for the first match starting at byte offset `from` or later. `match` may be null and
  // is left alone when nothing matches. A search that would pass the matcher's memory caps (only
  // texts of many megabytes come near them) fails cleanly.
  bool search(std::string_view text, std::size_t from, RegexMatch* match) const;

  // Replaces every match with `replacement`, where $0..$9 (and \0..\9) refer to groups (a group
  // that did not match or does not exist gives nothing), $$ is a dollar and \\ a backslash.
  // A regex that did not compile renders as "[[error: invalid regex pattern]]".
  SmallString replace(std::string_view text, std::string_view replacement) const;

 private:
  std::shared_ptr<const RegexProgram> program_;  // immutable, shared by copies
};

}  // namespace qm
