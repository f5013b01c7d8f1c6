#include <gtest/gtest.h>

#include "regex/regex.h"
#include "regex_test_helpers.h"

namespace qm {
namespace {

using test::firstMatch;
using test::matchBegin;

TEST(RegexMatching, LiteralsAndDotFindTheLeftmostMatch) {
  EXPECT_EQ(firstMatch("b.d", "abxdbyd"), "bxd");
  EXPECT_EQ(firstMatch("a.c", "a\nc"), "<none>");
  EXPECT_EQ(firstMatch("xyz", "xy"), "<none>");
  EXPECT_EQ(firstMatch("", "abc"), "");
}

TEST(RegexMatching, BracketsWithRangesNegationAndLiteralEdges) {
  EXPECT_EQ(firstMatch("[a-cx]+", "zzbacxq"), "bacx");
  EXPECT_EQ(firstMatch("[^a-c]+", "abcdefa"), "def");
  EXPECT_EQ(firstMatch("[]a]+", "x]a]y"), "]a]");       // ']' first is a literal
  EXPECT_EQ(firstMatch("[a-]+", "x-a-y"), "-a-");       // '-' last is a literal
  EXPECT_EQ(firstMatch("[\\]\\\\]+", "x]\\]y"), "]\\]");
  EXPECT_EQ(firstMatch("[^\\n]+", "ab\ncd"), "ab");
}

TEST(RegexMatching, ShorthandClassesInsideAndOutsideBrackets) {
  EXPECT_EQ(firstMatch("\\d+", "ab123c"), "123");
  EXPECT_EQ(firstMatch("\\D+", "12ab3"), "ab");
  EXPECT_EQ(firstMatch("\\s+", "a \t\r\n\f\vb"), " \t\r\n\f\v");
  EXPECT_EQ(firstMatch("\\S+", "  ab  "), "ab");
  EXPECT_EQ(firstMatch("\\w+", "-a_1-"), "a_1");
  EXPECT_EQ(firstMatch("\\W+", "ab-+cd"), "-+");
  EXPECT_EQ(firstMatch("[a-f\\d]+", "xx0a9fgg"), "0a9f");
  EXPECT_EQ(firstMatch("[\\s,]+", "a , b"), " , ");
  EXPECT_EQ(firstMatch("[\\D]+", "12ab3"), "ab");       // a negated shorthand inside brackets
  EXPECT_EQ(firstMatch("[^\\W_]+", "__ab1__"), "ab1");  // word characters except '_'
}

TEST(RegexMatching, EscapedCharactersStandForThemselves) {
  EXPECT_EQ(firstMatch("\\.\\\"\\/\\(\\[\\{\\*", "a.\"/([{*b"), ".\"/([{*");
  EXPECT_EQ(firstMatch("\\t\\r\\n", "a\t\r\nb"), "\t\r\n");
  EXPECT_EQ(firstMatch("\\x41\\u00e9\\x{1F600}", "A\xc3\xa9\xf0\x9f\x98\x80"), "A\xc3\xa9\xf0\x9f\x98\x80");
}

TEST(RegexMatching, PosixBracketClasses) {
  EXPECT_EQ(firstMatch("[[:alpha:]]+", "12abC3"), "abC");
  EXPECT_EQ(firstMatch("[[:alnum:]]+", "-a1B-"), "a1B");
  EXPECT_EQ(firstMatch("[[:digit:][:upper:]]+", "ab1C2d"), "1C2");
  EXPECT_EQ(firstMatch("[[:xdigit:]]+", "xx0aFgg"), "0aF");
  EXPECT_EQ(firstMatch("[[:blank:]]+", "a \t\nb"), " \t");
  EXPECT_EQ(firstMatch("[[:space:]]+", "a \t\nb"), " \t\n");
  EXPECT_EQ(firstMatch("[[:punct:]]+", "ab!@[`{~cd"), "!@[`{~");
  EXPECT_EQ(firstMatch("[[:lower:]]+", "ABcdE"), "cd");
  EXPECT_EQ(firstMatch("[[:cntrl:]]+", std::string_view("a\x01\x7f" "b", 4)), "\x01\x7f");
  EXPECT_EQ(firstMatch("[[:graph:]]+", " ab~ "), "ab~");
  EXPECT_EQ(firstMatch("[[:print:]]+", "\tab c\t"), "ab c");
  EXPECT_EQ(firstMatch("[[:word:]]+", "-a_1-"), "a_1");
  EXPECT_EQ(firstMatch("[[:^digit:]]+", "12ab3"), "ab");
}

TEST(RegexMatching, PropertyNamesAndTheirNegation) {
  EXPECT_EQ(firstMatch("\\p{XDigit}+", "xx0aFgg"), "0aF");
  EXPECT_EQ(firstMatch("\\p{Alpha}+", "12abC3"), "abC");
  EXPECT_EQ(firstMatch("\\p{Digit}+", "ab12c"), "12");
  EXPECT_EQ(firstMatch("\\p{Space}+", "a \tb"), " \t");
  EXPECT_EQ(firstMatch("\\P{Digit}+", "12ab3"), "ab");
  EXPECT_EQ(firstMatch("[\\p{Upper}\\d]+", "abC1Dx"), "C1D");
}

TEST(RegexMatching, GroupsCaptureInOpeningOrder) {
  Regex regex = Regex::compile("((a)|(b))+(?:c)(d)?");
  ASSERT_TRUE(regex.ok());
  EXPECT_EQ(regex.groupCount(), 4u);
  std::string_view text = "xabc";
  RegexMatch match;
  ASSERT_TRUE(regex.search(text, 0, &match));
  ASSERT_EQ(match.groups.size(), 5u);
  EXPECT_EQ(match.group(text, 0), "abc");
  EXPECT_EQ(match.group(text, 1), "b");  // the last iteration wins
  EXPECT_EQ(match.group(text, 2), "a");
  EXPECT_EQ(match.group(text, 3), "b");
  EXPECT_FALSE(match.groups[4].matched);
  EXPECT_EQ(match.group(text, 4), "");
  EXPECT_EQ(match.group(text, 9), "");
}

TEST(RegexMatching, AlternationPrefersTheEarlierBranch) {
  EXPECT_EQ(firstMatch("ab|abc", "abc"), "ab");
  EXPECT_EQ(firstMatch("x(a|ab)c", "xabc"), "xabc");  // backtracks into the second branch
  EXPECT_EQ(firstMatch("a|", "b"), "");
}

TEST(RegexMatching, GreedyAndLazyQuantifiers) {
  EXPECT_EQ(firstMatch("<.*>", "<a><b>"), "<a><b>");
  EXPECT_EQ(firstMatch("<.*?>", "<a><b>"), "<a>");
  EXPECT_EQ(firstMatch("a+?", "aaa"), "a");
  EXPECT_EQ(firstMatch("a??b", "ab"), "ab");
  EXPECT_EQ(firstMatch("a{2}", "aaaa"), "aa");
  EXPECT_EQ(firstMatch("a{2,}", "aaaa"), "aaaa");
  EXPECT_EQ(firstMatch("a{2,3}", "aaaa"), "aaa");
  EXPECT_EQ(firstMatch("a{2,3}?", "aaaa"), "aa");
  EXPECT_EQ(firstMatch("a{0}b", "ab"), "b");
  EXPECT_EQ(firstMatch("x(ab){1,2}y", "xababy xaby"), "xababy");
  EXPECT_EQ(firstMatch("a{3}", "aa"), "<none>");
}

TEST(RegexMatching, EmptyLoopsTerminate) {
  EXPECT_EQ(firstMatch("(a*)*b", "aab"), "aab");
  EXPECT_EQ(firstMatch("(a?)+?c", "c"), "c");
  EXPECT_EQ(firstMatch("(|a)*$", "aa"), "aa");
}

TEST(RegexMatching, AnchorsWithoutMultiLineHoldOnlyAtTheTextEnds) {
  EXPECT_EQ(firstMatch("^b", "a\nb"), "<none>");
  EXPECT_EQ(firstMatch("a$", "a\nb"), "<none>");
  EXPECT_EQ(firstMatch("b$", "a\nb"), "b");
  EXPECT_EQ(firstMatch("b$", "b\r\n"), "<none>");
}

TEST(RegexMatching, MultiLineAnchorsHoldAtEveryLineAndTakeCrLfAsOneEnd) {
  EXPECT_EQ(firstMatch("^b.*$", "a\nbc\nd", kRegexMultiLine), "bc");
  EXPECT_EQ(firstMatch("^b.*$", "a\r\nbc\r\nd", kRegexMultiLine), "bc");
  EXPECT_EQ(firstMatch("c$", "c\r\n", kRegexMultiLine), "c");
  EXPECT_EQ(firstMatch("^$", "a\n\nb", kRegexMultiLine), "");
  EXPECT_EQ(firstMatch(".+", "\r\n"), "<none>");  // a "\r" before "\n" belongs to the line end
  EXPECT_EQ(firstMatch(".+", "a\rb"), "a\rb");    // a lone "\r" is an ordinary character
}

TEST(RegexMatching, SearchStartsAtTheGivenOffsetButSeesWhatLiesBefore) {
  Regex line_start = Regex::compile("^x", kRegexMultiLine);
  RegexMatch match;
  EXPECT_FALSE(line_start.search("axx", 1, &match));  // offset 1 is not a line start
  ASSERT_TRUE(line_start.search("a\nx", 2, &match));
  EXPECT_EQ(match.groups[0].begin, 2u);
  EXPECT_FALSE(Regex::compile("^x").search("\nx", 1, &match));
  EXPECT_FALSE(line_start.search("x", 2, &match));  // past the end
  EXPECT_TRUE(Regex::compile("$").search("ab", 2, &match));
}

TEST(RegexMatching, WordBoundaries) {
  EXPECT_EQ(matchBegin("\\bcat\\b", "concat cat"), 7u);
  EXPECT_EQ(matchBegin("\\Bcat", "cat concat"), 7u);
  EXPECT_EQ(matchBegin("t\\b", "at-"), 1u);
  EXPECT_EQ(matchBegin("\\b", ""), std::string::npos);
}

TEST(RegexMatching, CaseInsensitiveLiteralsClassesAndRanges) {
  EXPECT_EQ(firstMatch("default", "DeFaULT", kRegexCaseInsensitive), "DeFaULT");
  EXPECT_EQ(firstMatch("[a-c]+", "xAbCx", kRegexCaseInsensitive), "AbC");
  EXPECT_EQ(firstMatch("[^a]+", "AaBb", kRegexCaseInsensitive), "Bb");
  EXPECT_EQ(firstMatch("\\W+", "aA-", kRegexCaseInsensitive), "-");
  EXPECT_EQ(firstMatch("\xc3\xa9t\xc3\xa9", "\xc3\x89T\xc3\x89", kRegexCaseInsensitive), "\xc3\x89T\xc3\x89");
  EXPECT_EQ(firstMatch("\xd0\xb4", "\xd0\x94", kRegexCaseInsensitive), "\xd0\x94");  // Cyrillic de
  EXPECT_EQ(firstMatch("default", "DEFAULT"), "<none>");
}

TEST(RegexMatching, Utf8CharactersAreSingleUnits) {
  EXPECT_EQ(firstMatch("^.$", "\xc3\xa9"), "\xc3\xa9");
  EXPECT_EQ(firstMatch("^.{3}$", "a\xe2\x82\xac\xf0\x9f\x98\x80"), "a\xe2\x82\xac\xf0\x9f\x98\x80");
  EXPECT_EQ(firstMatch("[\xc3\xa0-\xc3\xbf]+", "a\xc3\xa9\xc3\xa8z"), "\xc3\xa9\xc3\xa8");
  EXPECT_EQ(firstMatch("\xe2\x82\xac+", "x\xe2\x82\xac\xe2\x82\xac"), "\xe2\x82\xac\xe2\x82\xac");
  // A match never starts inside a character.
  EXPECT_EQ(firstMatch("[^a]", "\xc3\xa9"), "\xc3\xa9");
}

TEST(RegexMatching, InvalidBytesMatchAsSingleUnits) {
  std::string_view text("a\xff\xc3(\xe2\x82z", 7);  // stray byte, truncated 2- and 3-byte forms
  EXPECT_EQ(firstMatch("^a...", text), "a\xff\xc3(");
  EXPECT_EQ(firstMatch("^.{6}z$", text), text);
  EXPECT_EQ(firstMatch("\xff", text), "\xff");
  EXPECT_EQ(firstMatch("[\\x{ff}]", text), "<none>");  // U+00FF is not the byte FF
  EXPECT_EQ(firstMatch("\\W+", text), "\xff\xc3(\xe2\x82");
  EXPECT_EQ(firstMatch("^.$", "\xc0\x80"), "<none>");  // an overlong form is two invalid bytes
  EXPECT_EQ(firstMatch("^.$", "\xed\xa0\x80"), "<none>");  // so is an encoded surrogate (three)
}

}  // namespace
}  // namespace qm
