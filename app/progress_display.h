#pragma once
// Shows a person at a terminal how far a run has come: one status line on standard error,
// redrawn in place a few times a second, with log lines printed above it, and at the end one
// summary line in its place. Scripts never see it: it is only started on a terminal.
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <thread>

#include "app/run_context.h"
#include "app/progress_line.h"
#include "base/log.h"
#include "platform/terminal.h"

namespace qm {

class ProgressDisplay {
 public:
  // Draws on `output`, which takes log lines too while the display runs. The totals are what
  // the run is about to convert.
  ProgressDisplay(OutputHandle output, std::int64_t files_total, std::uint64_t bytes_total);
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;
  ~ProgressDisplay();

  // Any worker may call these.
  void fileStarted(std::string_view input_path);
  // `lossy`: converted, but with records left out; counted apart from the clean conversions.
  void fileFinished(std::int64_t size, bool converted, bool lossy = false);
  // A file that was counted but that the walk chose not to convert.
  void fileSkipped(std::int64_t size);

  // Replaces the status line by the summary and gives the log its own output back. Call once
  // no conversion runs any more.
  void finish();

  ProgressSnapshot snapshot() const;

 private:
  using Clock = std::chrono::steady_clock;

  void tick();
  void redrawIfDue();
  void redraw();
  void clearStatusLine();
  void writeAll(std::string_view bytes) const;
  ProgressSnapshot snapshotLocked() const;
  static void writeLogLine(void* display, LogLine& line);

  const OutputHandle output_;
  const Clock::time_point started_;
  mutable std::mutex mutex_;
  std::condition_variable stop_;
  bool stopping_ = false;
  bool status_shown_ = false;
  Clock::time_point last_drawn_;
  ProgressSnapshot counts_;  // everything but the time and the current file
  SmallString current_file_;
  std::thread ticker_;
};

// Standard error is a terminal and --non-interactive was not given.
bool progressWanted(const ConversionOptions& options);

// Columns of the terminal on `output`, 80 when it does not say.
int terminalWidth(OutputHandle output);

}  // namespace qm
