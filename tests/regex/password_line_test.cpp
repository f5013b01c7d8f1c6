// The pattern the password-file parser matches every line against, on lines made to provoke
// backtracking; the line shapes it takes are checked through the parser (PasswordText).
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "regex/regex.h"

namespace qm {
namespace {

constexpr const char* kPasswordLinePattern = "^\\s*\"(default|[a-fA-F\\d]*)\"\\s*:\\s*\"(.*)\"\\s*,?\\s*$";

double secondsToSearch(const Regex& regex, std::string_view text) {
  auto start = std::chrono::steady_clock::now();
  RegexMatch match;
  EXPECT_FALSE(regex.search(text, 0, &match));
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Plain backtracking would need exponential (or at best cubic) time on these; the limits are
// generous so a loaded machine or a sanitizer build does not fail them.
TEST(PasswordLine, PathologicalLinesFailQuickly) {
  Regex regex = Regex::compile(kPasswordLinePattern, kRegexMultiLine);
  std::string quotes_and_spaces;
  for (int i = 0; i < 2500; ++i) quotes_and_spaces += "\" ";
  EXPECT_LT(secondsToSearch(regex, quotes_and_spaces), 2.0);
  std::string almost = "\"1A\": \"" + quotes_and_spaces + std::string(2000, ' ') + ",x";
  EXPECT_LT(secondsToSearch(regex, almost), 2.0);
  std::string many_lines;
  for (int i = 0; i < 2000; ++i) many_lines += "  \"1A\": \"" + std::string(40, '"') + "\" x\n";
  EXPECT_LT(secondsToSearch(regex, many_lines), 2.0);
}

TEST(PasswordLine, NestedQuantifiersFailQuickly) {
  std::string as(5000, 'a');
  EXPECT_LT(secondsToSearch(Regex::compile("(a*)*b"), as), 2.0);
  EXPECT_LT(secondsToSearch(Regex::compile("(a|aa)+$"), as + "!"), 2.0);
  EXPECT_LT(secondsToSearch(Regex::compile("(\\s*,?\\s*)*x"), std::string(5000, ' ')), 2.0);
}

}  // namespace
}  // namespace qm
