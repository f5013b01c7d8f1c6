#include "regex/regex.h"

#include "regex/utf8_decoder.h"

namespace qm {
namespace {

constexpr std::string_view kInvalidPatternText = "[[error: invalid regex pattern]]";

// Expands $0..$9 and \0..\9 to group texts, $$ to '$' and \\ to '\'; anything else is copied.
void appendExpansion(std::string_view replacement, std::string_view text, const RegexMatch& match,
                     SmallString* out) {
  for (std::size_t i = 0; i < replacement.size(); ++i) {
    char c = replacement[i];
    bool escape = (c == '$' || c == '\\') && i + 1 < replacement.size();
    char next = escape ? replacement[i + 1] : '\0';
    if (escape && next >= '0' && next <= '9') {
      out->append(match.group(text, static_cast<std::size_t>(next - '0')));
      ++i;
    } else if (escape && next == c) {
      out->append(&c, 1);
      ++i;
    } else {
      out->append(&c, 1);
    }
  }
}

}  // namespace

// An empty match copies the next character before the search goes on, so it cannot repeat in
// place; after a non-empty match an empty one may follow at its end.
SmallString Regex::replace(std::string_view text, std::string_view replacement) const {
  if (!ok()) return SmallString(kInvalidPatternText);
  SmallString out;
  RegexMatch match;
  std::size_t copied = 0;
  std::size_t from = 0;
  while (from <= text.size() && search(text, from, &match)) {
    const RegexMatch::Group& whole = match.groups[0];
    out.append(text.substr(copied, whole.begin - copied));
    appendExpansion(replacement, text, match, &out);
    copied = whole.end;
    from = whole.end;
    if (whole.end == whole.begin) {
      if (whole.end == text.size()) break;
      std::size_t length = decodeUtf8(text, whole.end).length;
      out.append(text.substr(whole.end, length));
      copied = from = whole.end + length;
    }
  }
  out.append(text.substr(copied));
  return out;
}

}  // namespace qm
