#include "regex/regex.h"

#include "regex/backtrack_matcher.h"
#include "regex/regex_parser.h"
#include "regex/regex_program.h"

namespace qm {

std::string_view RegexMatch::group(std::string_view text, std::size_t i) const {
  if (i >= groups.size() || !groups[i].matched) return {};
  const Group& found = groups[i];
  if (found.begin > found.end || found.end > text.size()) return {};
  return text.substr(found.begin, found.end - found.begin);
}

Regex Regex::compile(std::string_view pattern, unsigned options) {
  Regex regex;
  std::optional<ParsedPattern> parsed = parsePattern(pattern);
  if (!parsed) return regex;
  std::optional<RegexProgram> program = compileProgram(std::move(*parsed), (options & kRegexCaseInsensitive) != 0,
                                                       (options & kRegexMultiLine) != 0);
  if (program) regex.program_ = std::make_shared<const RegexProgram>(std::move(*program));
  return regex;
}

std::size_t Regex::groupCount() const { return program_ ? program_->group_count : 0; }

bool Regex::search(std::string_view text, std::size_t from, RegexMatch* match) const {
  if (!program_) return false;
  std::vector<std::size_t> slots;
  if (!searchProgram(*program_, text, from, &slots)) return false;
  if (!match) return true;
  match->groups.assign(program_->group_count + 1, RegexMatch::Group{});
  for (std::size_t i = 0; i < match->groups.size(); ++i) {
    std::size_t begin = slots[2 * i];
    std::size_t end = slots[2 * i + 1];
    if (begin == kNoPosition || end == kNoPosition) continue;
    match->groups[i] = {begin, end, true};
  }
  return true;
}

}  // namespace qm
