#pragma once
// A set of characters: sorted, merged ranges of code units plus a negation flag, so that
// case-insensitive matching can test a character's case variants before negating.
#include <cstdint>
#include <string_view>
#include <vector>

namespace qm {

struct CodeRange {
  std::uint32_t first;
  std::uint32_t last;
};

class CharClass {
 public:
  void add(std::uint32_t first, std::uint32_t last);
  void add(std::uint32_t code) { add(code, code); }
  void add(const CharClass& other);  // takes the other's ranges, not its negation
  // Replaces the ranges with every code unit (including invalid bytes) they do not hold.
  void complementRanges();
  void negate() { negated_ = !negated_; }

  bool contains(std::uint32_t code) const;  // the ranges alone
  bool matches(std::uint32_t code, bool ignore_case) const;
  const std::vector<CodeRange>& ranges() const { return ranges_; }

 private:
  void normalize();

  std::vector<CodeRange> ranges_;  // sorted, non-overlapping, non-adjacent
  bool negated_ = false;
};

// The ASCII classes by name: the bracket names alnum, alpha, blank, cntrl, digit, graph, lower,
// print, punct, space, upper, xdigit, word, also as property names (XDigit, Alpha, ...); names
// compare without regard to case. False for an unknown name.
bool findNamedClass(std::string_view name, CharClass* out);

}  // namespace qm
