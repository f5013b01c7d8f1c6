#include "regex/char_class.h"

#include <algorithm>

#include "regex/case_folding.h"
#include "regex/utf8_decoder.h"

namespace qm {

void CharClass::add(std::uint32_t first, std::uint32_t last) {
  ranges_.push_back({first, last});
  normalize();
}

void CharClass::add(const CharClass& other) {
  ranges_.insert(ranges_.end(), other.ranges_.begin(), other.ranges_.end());
  normalize();
}

void CharClass::complementRanges() {
  std::vector<CodeRange> gaps;
  std::uint32_t next = 0;
  for (const CodeRange& range : ranges_) {
    if (range.first > next) gaps.push_back({next, range.first - 1});
    next = range.last + 1;
  }
  if (next <= kLastCodeUnit) gaps.push_back({next, kLastCodeUnit});
  ranges_ = std::move(gaps);
}

bool CharClass::contains(std::uint32_t code) const {
  auto after = std::upper_bound(ranges_.begin(), ranges_.end(), code,
                                [](std::uint32_t value, const CodeRange& range) { return value < range.first; });
  return after != ranges_.begin() && code <= std::prev(after)->last;
}

bool CharClass::matches(std::uint32_t code, bool ignore_case) const {
  bool found = contains(code) || (ignore_case && (contains(toLowerCase(code)) || contains(toUpperCase(code))));
  return found != negated_;
}

void CharClass::normalize() {
  std::sort(ranges_.begin(), ranges_.end(),
            [](const CodeRange& a, const CodeRange& b) { return a.first < b.first; });
  std::vector<CodeRange> merged;
  for (const CodeRange& range : ranges_) {
    if (!merged.empty() && range.first <= merged.back().last + 1) {
      merged.back().last = std::max(merged.back().last, range.last);
    } else {
      merged.push_back(range);
    }
  }
  ranges_ = std::move(merged);
}

namespace {

struct NamedClass {
  std::string_view name;
  std::string_view ranges;  // pairs of first/last characters
};

// Punctuation is every printable, non-alphanumeric, non-space ASCII character.
constexpr NamedClass kNamedClasses[] = {
    {"alnum", "09AZaz"},
    {"alpha", "AZaz"},
    {"blank", "  \t\t"},
    {"cntrl", std::string_view("\x00\x1f\x7f\x7f", 4)},
    {"digit", "09"},
    {"graph", "!~"},
    {"lower", "az"},
    {"print", " ~"},
    {"punct", "!/:@[`{~"},
    {"space", "\t\r  "},
    {"upper", "AZ"},
    {"xdigit", "09AFaf"},
    {"word", "09AZ__az"},
};

char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return asciiLower(x) == asciiLower(y); });
}

}  // namespace

bool findNamedClass(std::string_view name, CharClass* out) {
  for (const NamedClass& named : kNamedClasses) {
    if (!equalIgnoringAsciiCase(named.name, name)) continue;
    CharClass set;
    for (std::size_t i = 0; i + 1 < named.ranges.size(); i += 2) {
      set.add(static_cast<unsigned char>(named.ranges[i]), static_cast<unsigned char>(named.ranges[i + 1]));
    }
    *out = std::move(set);
    return true;
  }
  return false;
}

}  // namespace qm
