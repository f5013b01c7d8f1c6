#include <gtest/gtest.h>

#include <string>

#include "regex/regex.h"
#include "regex_test_helpers.h"

namespace qm {
namespace {

class MalformedPattern : public ::testing::TestWithParam<const char*> {};

TEST_P(MalformedPattern, DoesNotCompile) {
  Regex regex = Regex::compile(GetParam());
  EXPECT_FALSE(regex.ok());
  EXPECT_EQ(regex.groupCount(), 0u);
  RegexMatch match;
  EXPECT_FALSE(regex.search("anything (a) [b] {c}", 0, &match));
}

INSTANTIATE_TEST_SUITE_P(UnbalancedGroups, MalformedPattern,
                         ::testing::Values("(", "(a", "a)", ")", "(a))", "((a)", "(?", "(?=a)", "(?i)a",
                                           "(?<n>a)"));
INSTANTIATE_TEST_SUITE_P(BadBrackets, MalformedPattern,
                         ::testing::Values("[", "[a", "[]", "[^]", "]", "a]", "}", "[z-a]", "[\\d-z]", "[a-\\d]",
                                           "[[:alpha]", "[[:nope:]]", "[\\B]"));
INSTANTIATE_TEST_SUITE_P(DanglingQuantifiers, MalformedPattern,
                         ::testing::Values("*", "+a", "?", "a|*", "(*)", "a**", "a+*", "a?+", "a*??", "^*", "$+",
                                           "\\b*", "{2}"));
INSTANTIATE_TEST_SUITE_P(BadCounts, MalformedPattern,
                         ::testing::Values("a{", "a{2", "a{2,", "a{,3}", "a{3,2}", "a{x}", "a{2}{3}", "a{1001}",
                                           "a{1,99999999999}", "(a{1000}){1000}"));
INSTANTIATE_TEST_SUITE_P(BadEscapes, MalformedPattern,
                         ::testing::Values("\\", "a\\", "\\q", "\\1", "\\p{Nope}", "\\pL", "\\p{Alpha", "\\x4",
                                           "\\x{110000}", "\\x{}", "\\uD800", "\\u12"));

TEST(MalformedPattern, DeepNestingIsRefusedWithoutExhaustingTheStack) {
  std::string deep = std::string(100000, '(') + std::string(100000, ')');
  EXPECT_FALSE(Regex::compile(deep).ok());
  std::string fine = std::string(50, '(') + "a" + std::string(50, ')');
  EXPECT_TRUE(Regex::compile(fine).ok());
}

TEST(MalformedPattern, InvalidRegexReplacesWithTheErrorText) {
  EXPECT_EQ(Regex::compile("(").replace("abc", "x").view(), "[[error: invalid regex pattern]]");
  EXPECT_EQ(Regex().replace("abc", "x").view(), "[[error: invalid regex pattern]]");
}

TEST(MalformedPattern, BorderlinePatternsStillCompile) {
  EXPECT_EQ(test::firstMatch("a{1000}", std::string(1000, 'a')), std::string(1000, 'a'));
  EXPECT_EQ(test::firstMatch("[[]+", "a[[b"), "[[");
  EXPECT_EQ(test::firstMatch("\\{\\}\\]", "{}]"), "{}]");
  EXPECT_EQ(test::firstMatch("()", "a"), "");
  EXPECT_EQ(test::firstMatch("\\p{xdigit}+", "fg"), "f");  // property names ignore case
  EXPECT_EQ(test::firstMatch(std::string_view("a\0b", 3), std::string_view("xa\0b", 4)), std::string("a\0b", 3));
}

}  // namespace
}  // namespace qm
