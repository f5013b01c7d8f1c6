#include "app/progress_display.h"

#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

#include <string>
#include <thread>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/support/text_shape.h"

namespace qm {
namespace {

constexpr std::string_view kRedraw = "\r\033[K";

std::vector<std::string> splitAtRedraws(const std::string& bytes) {
  std::vector<std::string> segments;
  std::size_t at = 0;
  for (std::size_t next; (next = bytes.find(kRedraw, at)) != std::string::npos; at = next + kRedraw.size()) {
    segments.push_back(bytes.substr(at, next - at));
  }
  segments.push_back(bytes.substr(at));
  return segments;
}

// The display draws into a file here, which is not a terminal: 80 columns.
class ProgressDisplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef _WIN32
    file_ = CreateFileW(test::pathOf(dir_ / "screen").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file_, INVALID_HANDLE_VALUE);
    screen_ = OutputHandle{reinterpret_cast<std::intptr_t>(file_)};
#else
    fd_ = ::open((dir_ / "screen").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd_, 0);
    screen_ = OutputHandle{fd_};  // on POSIX systems the descriptor is the handle
#endif
    setLogThreshold(kLogVerbose);
  }
  void TearDown() override {
#ifdef _WIN32
    if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
#else
    ::close(fd_);
#endif
    setLogThreshold(0);
  }
  std::string screen() { return test::readFile(dir_ / "screen"); }

  test::TempDir dir_;
#ifdef _WIN32
  HANDLE file_ = INVALID_HANDLE_VALUE;
#else
  int fd_ = -1;
#endif
  OutputHandle screen_{-1};
};

TEST_F(ProgressDisplayTest, LogLinesGoAboveTheStatusLineAndTheSummaryReplacesIt) {
  {
    ProgressDisplay display(screen_, 2, 300);
    display.fileStarted("logs/a.MF4");
    QM_LOG_E("Error during conversion of %s", "logs/a.MF4");
    display.fileFinished(100, false);
    display.fileStarted("logs/b.MF4");
    display.fileFinished(200, true);
    display.finish();
  }
  std::vector<std::string> segments = splitAtRedraws(screen());
  ASSERT_GE(segments.size(), 5u);
  EXPECT_EQ(segments[0], "");
  EXPECT_EQ(segments[1], "0/2 files, 0 B/300 B, 0 B/s, --:-- left");
  // Redrawn at once around the log line, whatever the time since the last redraw.
  const char* log_line = R"(^\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [ \d]{5} [ \d]{5} E Error during conversion of logs/a\.MF4\n$)";
  // A slow machine may let the display redraw on its own in between; the log line is found.
  std::size_t at = 2;
  while (at + 1 < segments.size() && !test::hasShape(segments[at], log_line)) ++at;
  ASSERT_LT(at + 1, segments.size()) << screen();
  // Redrawn at once below the log line, whatever the time since the last redraw.
  EXPECT_EQ(segments[at + 1].rfind("0/2 files, 0 B/300 B, ", 0), 0u) << segments[at + 1];
  EXPECT_EQ(segments[at + 1].substr(segments[at + 1].size() - 10), "logs/a.MF4");
  EXPECT_EQ(segments.back().rfind("Converted 1 file, 1 failed, 0 skipped, 200 B in ", 0), 0u) << segments.back();
  EXPECT_EQ(segments.back().back(), '\n');
}

TEST_F(ProgressDisplayTest, SkippedFilesAreDoneAndLeaveTheByteTotal) {
  ProgressDisplay display(screen_, 3, 600);
  display.fileSkipped(100);
  display.fileStarted("c.MF4");
  display.fileFinished(200, true);
  ProgressSnapshot now = display.snapshot();
  EXPECT_EQ(now.files_skipped, 1);
  EXPECT_EQ(now.files_converted, 1);
  EXPECT_EQ(now.bytes_total, 500u);
  EXPECT_EQ(now.bytes_done, 200u);
  EXPECT_EQ(now.current_file, "c.MF4");
  display.finish();
  EXPECT_EQ(splitAtRedraws(screen()).back().rfind("Converted 1 file, 0 failed, 1 skipped, 200 B in ", 0), 0u);
}

// Workers report and log at the same time as the display redraws on its own: every line stays
// whole and every file is counted.
TEST_F(ProgressDisplayTest, WorkersReportingTogetherKeepLinesWholeAndCountsRight) {
  constexpr int kWorkers = 4;
  constexpr int kFilesEach = 60;
  {
    ProgressDisplay display(screen_, kWorkers * kFilesEach, kWorkers * kFilesEach * 10);
    std::vector<std::thread> workers;
    for (int w = 0; w < kWorkers; ++w) {
      workers.emplace_back([&display, w] {
        for (int i = 0; i < kFilesEach; ++i) {
          std::string name = "w" + std::to_string(w) + "/f" + std::to_string(i) + ".MF4";
          display.fileStarted(name);
          QM_LOG_I("working on %s", name.c_str());
          if (i % 10 == 9) {
            display.fileSkipped(10);
          } else {
            display.fileFinished(10, i % 10 != 0);
          }
        }
      });
    }
    for (std::thread& worker : workers) worker.join();
    ProgressSnapshot now = display.snapshot();
    EXPECT_EQ(now.files_converted, kWorkers * 48);
    EXPECT_EQ(now.files_failed, kWorkers * 6);
    EXPECT_EQ(now.files_skipped, kWorkers * 6);
    EXPECT_EQ(now.bytes_done, now.bytes_total);
    display.finish();
  }
  int log_lines = 0;
  const char* status = R"(^\d+/240 files, .* left, w\d/f\d+\.MF4$|^0/240 files, .* left$)";
  const char* log_line = R"(^\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [ \d]{5} [ \d]{5} I working on w\d/f\d+\.MF4\n$)";
  std::vector<std::string> segments = splitAtRedraws(screen());
  for (std::size_t i = 1; i + 1 < segments.size(); ++i) {
    const std::string& s = segments[i];
    if (s.empty()) continue;
    if (s.back() == '\n') {
      EXPECT_TRUE(test::hasShape(s, log_line)) << s;
      ++log_lines;
    } else {
      EXPECT_TRUE(test::hasShape(s, status)) << s;
    }
  }
  EXPECT_EQ(log_lines, kWorkers * kFilesEach);
  EXPECT_EQ(segments.back().rfind("Converted 192 files, 24 failed, 24 skipped, 1.9 KiB in ", 0), 0u)
      << segments.back();
}

}  // namespace
}  // namespace qm
