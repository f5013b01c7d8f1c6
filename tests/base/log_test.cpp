#include "base/log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/text_shape.h"

namespace qm {
namespace {

struct CapturedLines {
  std::vector<std::string> lines;
  static void capture(void* arg, LogLine& line) {
    *line.pos = '\n';
    static_cast<CapturedLines*>(arg)->lines.emplace_back(line.start, line.pos + 1);
  }
};

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override { setLogOutput(kLogContext | kLogTag | kLogLocation | kLogMessage, &captured_, CapturedLines::capture); }
  void TearDown() override {
    setLogOutput(kLogContext | kLogTag | kLogLocation | kLogMessage, nullptr, nullptr);
    setLogThreshold(0);
  }
  CapturedLines captured_;
};

TEST_F(LogTest, LineHasTimeIdsAndLevelLetter) {
  setLogThreshold(1);
  QM_LOG_E("Could not open input file %.*s", 5, "a.MF4xyz");
  ASSERT_EQ(captured_.lines.size(), 1u);
  const std::string& line = captured_.lines[0];
  EXPECT_TRUE(test::hasShape(
      line, R"(^\d\d-\d\d \d\d:\d\d:\d\d\.\d\d\d [ \d]{4}\d [ \d]{4}\d E Could not open input file a\.MF4\n$)"))
      << line;
  std::string pid = std::to_string(getpid());
  EXPECT_NE(line.find(pid), std::string::npos);
}

TEST_F(LogTest, ThresholdIsTestedBeforeFormatting) {
  setLogThreshold(6);  // verbosity 0: fatal only
  int evaluated = 0;
  auto count = [&] { return ++evaluated; };
  QM_LOG_E("%d", count());
  EXPECT_TRUE(captured_.lines.empty());
  EXPECT_EQ(evaluated, 0);
  QM_LOG_F("%d", count());
  ASSERT_EQ(captured_.lines.size(), 1u);
  EXPECT_NE(captured_.lines[0].find(" F 1\n"), std::string::npos);
}

TEST_F(LogTest, LongMessageIsCutAtFiveHundredTen) {
  setLogThreshold(1);
  std::string text(600, 'x');
  QM_LOG_W("%s", text.c_str());
  ASSERT_EQ(captured_.lines.size(), 1u);
  EXPECT_EQ(captured_.lines[0].size(), 511u);
  EXPECT_EQ(captured_.lines[0].back(), '\n');
  EXPECT_EQ(captured_.lines[0][509], 'x');
}

TEST_F(LogTest, ControlCharactersAreEscapedAndPrintableTextKept) {
  setLogThreshold(1);
  QM_LOG_E("Unable to load block header for type %s", "X\nFAKE\x1b[31m\x7f\tend");
  QM_LOG_E("%s", "Messwerte_\xc3\xa4\xe6\x97\xa5.MF4");  // UTF-8 passes unchanged
  ASSERT_EQ(captured_.lines.size(), 2u);
  const std::string& line = captured_.lines[0];
  EXPECT_EQ(line.substr(line.find(" E ")), " E Unable to load block header for type X\\x0aFAKE\\x1b[31m\\x7f\\x09end\n");
  EXPECT_EQ(captured_.lines[1].substr(captured_.lines[1].find(" E ")), " E Messwerte_\xc3\xa4\xe6\x97\xa5.MF4\n");

  // Bytes that are no printable UTF-8 (stray, cut, C1 controls) are escaped; the rest is kept.
  QM_LOG_E("%s", "\x9b" "2J \xc2\x9b \xe6\x97 \xc3\xa4");
  EXPECT_EQ(captured_.lines.back().substr(captured_.lines.back().find(" E ")),
            " E \\x9b2J \\xc2\\x9b \\xe6\\x97 \xc3\xa4\n");
  captured_.lines.pop_back();

  // Escapes near the limit are written whole or not at all, and the line stays one line.
  std::string controls(600, '\x1b');
  QM_LOG_E("%s", controls.c_str());
  const std::string& cut = captured_.lines[2];
  EXPECT_LE(cut.size(), 511u);
  EXPECT_EQ(cut.find('\x1b'), std::string::npos);
  EXPECT_EQ(cut.substr(cut.size() - 5), "\\x1b\n");
}

TEST_F(LogTest, LevelLetters) {
  EXPECT_EQ(logLevelLetter(1), 'V');
  EXPECT_EQ(logLevelLetter(3), 'I');
  EXPECT_EQ(logLevelLetter(6), 'F');
  EXPECT_EQ(logLevelLetter(7), '?');
  setLogThreshold(0);
  logWrite(7, nullptr, "odd");
  ASSERT_EQ(captured_.lines.size(), 1u);
  EXPECT_NE(captured_.lines[0].find(" ? odd\n"), std::string::npos);
}

}  // namespace
}  // namespace qm
