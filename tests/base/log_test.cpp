#include "base/log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/log_capture.h"
#include "tests/support/text_shape.h"

namespace qm {
namespace {

// Whole lines as they are written, from verbose on.
class LogTest : public ::testing::Test {
 protected:
  test::LogCapture captured_{kLogVerbose, kLogContext | kLogTag | kLogLocation | kLogMessage};
  // The text from the error level letter on.
  std::string fromLevel(std::size_t line) const { return captured_.lines().at(line).substr(captured_.lines()[line].find(" E ")); }
};

TEST_F(LogTest, LineHasTimeIdsAndLevelLetter) {
  QM_LOG_E("Could not open input file %.*s", 5, "a.MF4xyz");
  ASSERT_EQ(captured_.lines().size(), 1u);
  const std::string& line = captured_.lines()[0];
  EXPECT_TRUE(test::hasShape(
      line, R"(^\d\d-\d\d \d\d:\d\d:\d\d\.\d\d\d [ \d]{4}\d [ \d]{4}\d E Could not open input file a\.MF4$)"))
      << line;
  EXPECT_NE(line.find(std::to_string(getpid())), std::string::npos);
}

TEST_F(LogTest, ThresholdIsTestedBeforeFormatting) {
  setLogThreshold(6);  // verbosity 0: fatal only
  int evaluated = 0;
  auto count = [&] { return ++evaluated; };
  QM_LOG_E("%d", count());
  EXPECT_TRUE(captured_.lines().empty());
  EXPECT_EQ(evaluated, 0);
  QM_LOG_F("%d", count());
  ASSERT_EQ(captured_.lines().size(), 1u);
  EXPECT_TRUE(captured_.lines()[0].ends_with(" F 1"));
}

TEST_F(LogTest, LongMessageIsCutAtFiveHundredTen) {
  std::string text(600, 'x');
  QM_LOG_W("%s", text.c_str());
  ASSERT_EQ(captured_.lines().size(), 1u);
  EXPECT_EQ(captured_.lines()[0].size(), 510u);  // and the newline
  EXPECT_EQ(captured_.lines()[0].back(), 'x');
}

TEST_F(LogTest, ControlCharactersAreEscapedAndPrintableTextKept) {
  QM_LOG_E("Unable to load block header for type %s", "X\nFAKE\x1b[31m\x7f\tend");
  QM_LOG_E("%s", "Messwerte_\xc3\xa4\xe6\x97\xa5.MF4");  // UTF-8 passes unchanged
  // Bytes that are no printable UTF-8 (stray, cut, C1 controls) are escaped; the rest is kept.
  QM_LOG_E("%s", "\x9b" "2J \xc2\x9b \xe6\x97 \xc3\xa4");
  ASSERT_EQ(captured_.lines().size(), 3u);
  EXPECT_EQ(fromLevel(0), " E Unable to load block header for type X\\x0aFAKE\\x1b[31m\\x7f\\x09end");
  EXPECT_EQ(fromLevel(1), " E Messwerte_\xc3\xa4\xe6\x97\xa5.MF4");
  EXPECT_EQ(fromLevel(2), " E \\x9b2J \\xc2\\x9b \\xe6\\x97 \xc3\xa4");

  // Escapes near the limit are written whole or not at all, and the line stays one line.
  std::string controls(600, '\x1b');
  QM_LOG_E("%s", controls.c_str());
  const std::string& cut = captured_.lines()[3];
  EXPECT_LE(cut.size(), 510u);
  EXPECT_EQ(cut.find('\x1b'), std::string::npos);
  EXPECT_EQ(cut.find('\n'), std::string::npos);
  EXPECT_TRUE(cut.ends_with("\\x1b"));
}

TEST_F(LogTest, LevelLetters) {
  EXPECT_EQ(logLevelLetter(1), 'V');
  EXPECT_EQ(logLevelLetter(3), 'I');
  EXPECT_EQ(logLevelLetter(6), 'F');
  EXPECT_EQ(logLevelLetter(7), '?');
  logWrite(7, nullptr, "odd");
  ASSERT_EQ(captured_.lines().size(), 1u);
  EXPECT_TRUE(captured_.lines()[0].ends_with(" ? odd"));
}

}  // namespace
}  // namespace qm
