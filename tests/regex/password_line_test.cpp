// The pattern the password-file parser matches every line against, with the line shapes it meets.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "regex/regex.h"

namespace qm {
namespace {

constexpr const char* kPasswordLinePattern = "^\\s*\"(default|[a-fA-F\\d]*)\"\\s*:\\s*\"(.*)\"\\s*,?\\s*$";

using Pairs = std::vector<std::pair<std::string, std::string>>;

// Searches the whole text, each search continuing where the previous match ended.
Pairs allPairs(std::string_view text) {
  Regex regex = Regex::compile(kPasswordLinePattern, kRegexMultiLine);
  EXPECT_TRUE(regex.ok());
  EXPECT_EQ(regex.groupCount(), 2u);
  Pairs pairs;
  RegexMatch match;
  std::size_t from = 0;
  while (from <= text.size() && regex.search(text, from, &match)) {
    pairs.emplace_back(match.group(text, 1), match.group(text, 2));
    EXPECT_GT(match.groups[0].end, from);
    from = match.groups[0].end;
  }
  return pairs;
}

TEST(PasswordLine, KeysAreTakenExactlyAsWritten) {
  EXPECT_EQ(allPairs("  \"1a2b\": \"secret\",\n"), (Pairs{{"1a2b", "secret"}}));
  EXPECT_EQ(allPairs("\"00001A2B\":\"pw\""), (Pairs{{"00001A2B", "pw"}}));
  EXPECT_EQ(allPairs("\"\": \"empty key\""), (Pairs{{"", "empty key"}}));
  EXPECT_EQ(allPairs("\t\"default\" : \"fallback\""), (Pairs{{"default", "fallback"}}));
}

TEST(PasswordLine, LinesThatDoNotFitAreIgnored) {
  EXPECT_EQ(allPairs("\"DEFAULT\": \"x\""), Pairs{});
  EXPECT_EQ(allPairs("\"12G4\": \"x\""), Pairs{});
  EXPECT_EQ(allPairs("\"1A\": \"x\" trailing"), Pairs{});
  EXPECT_EQ(allPairs("\"1A\" \"x\""), Pairs{});
  EXPECT_EQ(allPairs("{\n}\n\n"), Pairs{});
  EXPECT_EQ(allPairs(""), Pairs{});
}

TEST(PasswordLine, ValueRunsToTheLastQuoteOfTheLine) {
  EXPECT_EQ(allPairs("\"1A\": \"pa\"ss\"word\","), (Pairs{{"1A", "pa\"ss\"word"}}));
  EXPECT_EQ(allPairs("\"1A\": \"say \\\"hi\\\"\""), (Pairs{{"1A", "say \\\"hi\\\""}}));
  EXPECT_EQ(allPairs("\"1A\": \"\""), (Pairs{{"1A", ""}}));
}

TEST(PasswordLine, TrailingCommaAndSpacesAreAllowed) {
  EXPECT_EQ(allPairs("\"1A\": \"pw\"  ,   \n\"2B\": \"x\" "), (Pairs{{"1A", "pw"}, {"2B", "x"}}));
  EXPECT_EQ(allPairs("\"1A\": \"pw\",,"), Pairs{});
}

TEST(PasswordLine, WindowsLineEndsStayOutOfTheValue) {
  EXPECT_EQ(allPairs("{\r\n  \"1A\": \"pw\",\r\n  \"default\": \"d\"\r\n}\r\n"),
            (Pairs{{"1A", "pw"}, {"default", "d"}}));
}

TEST(PasswordLine, RepeatedSearchWalksAWholeFileInOrder) {
  std::string file =
      "{\n"
      "  \"1A2B\": \"first\",\n"
      "  \"default\": \"fallback\",\n"
      "\n"
      "  \"DEFAULT\": \"ignored\",\n"
      "  \"ff00\": \"caf\xc3\xa9 \xe2\x82\xac\",\n"
      "  \"1A2B\": \"second\"\n"
      "}\n";
  EXPECT_EQ(allPairs(file), (Pairs{{"1A2B", "first"},
                                   {"default", "fallback"},
                                   {"ff00", "caf\xc3\xa9 \xe2\x82\xac"},
                                   {"1A2B", "second"}}));
}

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
