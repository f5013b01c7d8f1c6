// Progress for a person at a terminal: a status line redrawn in place with the log lines above
// it and a summary at the end; and for scripts, not one byte more than before.
#include <gtest/gtest.h>


#include "tests/cli/program_folder.h"
#include "tests/support/logger_files.h"
#include "tests/support/run_in_terminal.h"
#include "tests/support/text_shape.h"

namespace qm::test {
namespace {

constexpr std::string_view kRedraw = "\r\033[K";

std::string loggerFile(std::uint16_t seed) { return twoGroupLoggerFile(seed, 30); }

// Walk order: a, b, broken (fails), notes.txt (not taken), then the folder sub with c.
void writeFolder(const TempDir& dir) {
  writeFile(dir / "logs/a.MF4", loggerFile(1));
  writeFile(dir / "logs/b.MF4", loggerFile(2));
  writeFile(dir / "logs/broken.MF4", "not an MDF4 file at all");
  writeFile(dir / "logs/notes.txt", "not a log");
  writeFile(dir / "logs/sub/c.mf4", loggerFile(3));
}

// What the folder's run logs, prefixes stripped: at verbosity 1, and at verbosity 3.
const std::string kErrorLines = "E logs/broken.MF4: not an MDF4 file\nE Error during conversion of logs/broken.MF4\n";
const std::string kInfoLines = "W Failed to open password file at passwords.json\nI ls: logs\n" + kErrorLines +
                               "I ls: logs/sub\n";

// The terminal's bytes taken apart at each "carriage return, clear line".
struct Screen {
  std::vector<std::string> status_lines;
  std::string log;  // the log lines in order, prefixes stripped
  std::string summary;
  int redraws = 0;
  bool mixed = false;  // a status line and a log line share bytes
};

Screen readScreen(const std::string& bytes) {
  Screen screen;
  std::size_t at = 0;
  bool first = true;
  while (at <= bytes.size()) {
    std::size_t next = bytes.find(kRedraw, at);
    std::string segment = bytes.substr(at, next == std::string::npos ? std::string::npos : next - at);
    std::size_t newline = segment.find('\n');
    if (segment.rfind("Converted ", 0) == 0) {
      screen.summary = segment;
    } else if (newline == std::string::npos) {
      if (!segment.empty()) screen.status_lines.push_back(segment);
    } else if (first || newline == segment.size() - 1) {
      // Before the display starts, lines of the command line's own may come several at a time.
      if (segment.back() != '\n') screen.mixed = true;
      screen.log += withoutLogPrefixes(segment);
    } else {
      screen.mixed = true;
    }
    if (next == std::string::npos) break;
    ++screen.redraws;
    at = next + kRedraw.size();
    first = false;
  }
  return screen;
}

using Progress = ProgramFolder;

TEST_F(Progress, TerminalShowsStatusLinesWithLogLinesAboveAndASummary) {
  writeFolder(dir_);
  TerminalRun terminal = runInTerminal(QM_BINARY, {"--verbosity=3", "logs"}, path(""));
  EXPECT_EQ(terminal.status, 1);
  Screen screen = readScreen(terminal.screen);
  EXPECT_FALSE(screen.mixed) << terminal.screen;
  EXPECT_GE(screen.redraws, 5);

  ASSERT_FALSE(screen.status_lines.empty()) << terminal.screen;
  EXPECT_EQ(screen.status_lines.front().rfind("0/4 files, 0 B/", 0), 0u) << screen.status_lines.front();
  const char* status = R"(^\d/4 files, [\d.]+ (B|KiB)/[\d.]+ (B|KiB), [\d.]+ (B|KiB|MiB|GiB)/s, [-:\d]+ left(, .+)?$)";
  for (const std::string& line : screen.status_lines) {
    EXPECT_TRUE(test::hasShape(line, status)) << line;
    EXPECT_LT(line.size(), 80u);
  }
  // Redrawn below the failure's log line: three files done, the failed one the latest.
  bool after_failure = false;
  for (const std::string& line : screen.status_lines) {
    if (line.rfind("3/4 files, ", 0) == 0 && line.size() > 15 && line.substr(line.size() - 15) == "logs/broken.MF4") {
      after_failure = true;
    }
  }
  EXPECT_TRUE(after_failure) << terminal.screen;

  const char* summary = R"(^Converted 3 files, 1 failed, 0 skipped, [\d.]+ (B|KiB) in \d+\.\d s\n$)";
  EXPECT_TRUE(test::hasShape(screen.summary, summary)) << screen.summary;
  EXPECT_EQ(terminal.screen.substr(terminal.screen.size() - screen.summary.size()), screen.summary)
      << "the summary is the last thing printed";

  // The log lines are those of a run without a terminal, in the same order: counting the inputs
  // ahead logged nothing.
  TempDir plain_dir;
  writeFolder(plain_dir);
  ProgramRun plain = runProgram(QM_BINARY, {"--verbosity=3", "logs"}, plain_dir.path().string());
  EXPECT_EQ(screen.log, withoutLogPrefixes(plain.err));
}

TEST_F(Progress, NonInteractiveOnATerminalPrintsOnlyTheLogLines) {
  writeFolder(dir_);
  TerminalRun terminal = runInTerminal(QM_BINARY, {"--non-interactive", "--verbosity=3", "logs"}, path(""));
  EXPECT_EQ(terminal.status, 1);
  EXPECT_EQ(terminal.screen.find('\r'), std::string::npos);
  EXPECT_EQ(terminal.screen.find('\033'), std::string::npos);
  EXPECT_EQ(withoutLogPrefixes(terminal.screen), kInfoLines);
}

TEST_F(Progress, SeveralJobsCountTheWorkOfEveryWorker) {
  for (std::uint16_t i = 0; i < 8; ++i) writeFile(dir_ / ("logs/f" + std::to_string(i) + ".MF4"), loggerFile(i));
  writeFile(dir_ / "logs/g/broken.mfe", "not a container");
  TerminalRun terminal = runInTerminal(QM_BINARY, {"--jobs=3", "--verbosity=3", "logs"}, path(""));
  EXPECT_EQ(terminal.status, 1);
  Screen screen = readScreen(terminal.screen);
  EXPECT_FALSE(screen.mixed) << terminal.screen;
  EXPECT_EQ(screen.summary.rfind("Converted 8 files, 1 failed, 0 skipped, ", 0), 0u) << screen.summary;
  EXPECT_EQ(screen.status_lines.front().rfind("0/9 files, ", 0), 0u);
}

// Scripts read standard error: without a terminal it holds exactly what it held before the
// progress display existed, whether --non-interactive is given or not.
class ProgressWithoutTerminal : public ::testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(ProgressWithoutTerminal, StandardErrorIsUnchanged) {
  const auto& [verbosity, expected] = GetParam();
  TempDir plain_dir;
  TempDir non_interactive_dir;
  writeFolder(plain_dir);
  writeFolder(non_interactive_dir);
  ProgramRun plain = runProgram(QM_BINARY, {"--verbosity=" + verbosity, "logs"}, plain_dir.path().string());
  ProgramRun non_interactive = runProgram(QM_BINARY, {"--verbosity=" + verbosity, "--non-interactive", "logs"},
                                          non_interactive_dir.path().string());
  EXPECT_EQ(plain.status, 1);
  EXPECT_EQ(non_interactive.status, 1);
  EXPECT_EQ(plain.out, "");
  EXPECT_EQ(non_interactive.out, "");
  EXPECT_EQ(withoutLogPrefixes(plain.err), expected);
  EXPECT_EQ(withoutLogPrefixes(non_interactive.err), expected);
  EXPECT_EQ(plain.err.find('\r'), std::string::npos);
  EXPECT_EQ(readFile(plain_dir / "logs_out/sub/c_fin.MF4"), readFile(non_interactive_dir / "logs_out/sub/c_fin.MF4"));
}

INSTANTIATE_TEST_SUITE_P(Verbosity, ProgressWithoutTerminal,
                         ::testing::Values(std::pair<std::string, std::string>{"1", kErrorLines},
                                           std::pair<std::string, std::string>{"3", kInfoLines}));

}  // namespace
}  // namespace qm::test
