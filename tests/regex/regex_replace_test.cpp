#include <gtest/gtest.h>

#include "regex/regex.h"

namespace qm {
namespace {

std::string replaced(std::string_view pattern, std::string_view text, std::string_view replacement) {
  return std::string(Regex::compile(pattern).replace(text, replacement).view());
}

TEST(RegexReplace, GroupReferencesInBothForms) {
  EXPECT_EQ(replaced("(\\w+)@(\\w+)", "a@b, c@d", "$2 at $1"), "b at a, d at c");
  EXPECT_EQ(replaced("(\\w+)@(\\w+)", "a@b", "\\2/\\1/\\0"), "b/a/a@b");
}

TEST(RegexReplace, DollarAndBackslashEscapesAndLiterals) {
  EXPECT_EQ(replaced("x", "axb", "$$"), "a$b");
  EXPECT_EQ(replaced("x", "axb", "\\\\"), "a\\b");
  EXPECT_EQ(replaced("x", "axb", "$a\\q$"), "a$a\\q$b");
}

TEST(RegexReplace, MissingGroupsGiveNothing) {
  EXPECT_EQ(replaced("a(b)?", "a", "[$1]"), "[]");
  EXPECT_EQ(replaced("a", "a", "[$7]"), "[]");
}

TEST(RegexReplace, EmptyMatchesAdvanceByOneCharacter) {
  EXPECT_EQ(replaced("a*", "baac", "-"), "-b--c-");
  EXPECT_EQ(replaced("", "\xc3\xa9x", "-"), "-\xc3\xa9-x-");
  EXPECT_EQ(replaced("", "", "-"), "-");
}

TEST(RegexReplace, TextWithoutMatchesIsCopied) {
  EXPECT_EQ(replaced("z", "abc", "-"), "abc");
  std::string long_text(100, 'q');
  EXPECT_EQ(replaced("x", long_text, "-"), long_text);
}

TEST(RegexReplace, EveryLineOfAMultiLineText) {
  Regex regex = Regex::compile("^(\\w+)=(.*)$", kRegexMultiLine);
  EXPECT_EQ(regex.replace("a=1\r\nb=2\nnot a pair\n", "$2:$1").view(), "1:a\r\n2:b\nnot a pair\n");
}

}  // namespace
}  // namespace qm
