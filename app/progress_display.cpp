#include "app/progress_display.h"

namespace qm {
namespace {

// Often enough to look alive, rarely enough to cost nothing.
constexpr std::chrono::milliseconds kRedrawInterval(200);
constexpr std::string_view kClearLine = "\r\033[K";

}  // namespace

ProgressDisplay::ProgressDisplay(OutputHandle output, std::int64_t files_total, std::uint64_t bytes_total)
    : output_(output), started_(Clock::now()) {
  counts_.files_total = files_total;
  counts_.bytes_total = bytes_total;
  setLogOutput(kLogContext | kLogTag | kLogLocation | kLogMessage, this, &ProgressDisplay::writeLogLine);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    redraw();
  }
  ticker_ = std::thread([this] { tick(); });
}

ProgressDisplay::~ProgressDisplay() { finish(); }

void ProgressDisplay::fileStarted(std::string_view input_path) {
  std::lock_guard<std::mutex> lock(mutex_);
  current_file_ = SmallString(input_path);
  redrawIfDue();
}

void ProgressDisplay::fileFinished(std::int64_t size, bool converted, bool lossy) {
  auto bytes = static_cast<std::uint64_t>(size > 0 ? size : 0);
  std::lock_guard<std::mutex> lock(mutex_);
  counts_.bytes_done += bytes;
  if (converted) {
    ++(lossy ? counts_.files_lossy : counts_.files_converted);
    counts_.bytes_converted += bytes;
  } else {
    ++counts_.files_failed;
  }
  redrawIfDue();
}

void ProgressDisplay::fileSkipped(std::int64_t size) {
  auto bytes = static_cast<std::uint64_t>(size > 0 ? size : 0);
  std::lock_guard<std::mutex> lock(mutex_);
  ++counts_.files_skipped;
  // Throughput and time left are about the work that is done, so a skipped file leaves the total.
  counts_.bytes_total -= bytes < counts_.bytes_total ? bytes : counts_.bytes_total;
  redrawIfDue();
}

void ProgressDisplay::finish() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return;
    stopping_ = true;
  }
  stop_.notify_all();
  ticker_.join();
  setLogOutput(kLogContext | kLogTag | kLogLocation | kLogMessage, nullptr, nullptr);
  std::lock_guard<std::mutex> lock(mutex_);
  SmallString text(kClearLine);
  text.append(summaryLine(snapshotLocked()).view());
  text.append("\n");
  writeAll(text.view());
  status_shown_ = false;
}

ProgressSnapshot ProgressDisplay::snapshot() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return snapshotLocked();
}

ProgressSnapshot ProgressDisplay::snapshotLocked() const {
  ProgressSnapshot now = counts_;
  now.elapsed_seconds = std::chrono::duration<double>(Clock::now() - started_).count();
  now.current_file = current_file_.view();
  return now;
}

void ProgressDisplay::tick() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_.wait_for(lock, kRedrawInterval, [this] { return stopping_; })) redrawIfDue();
}

void ProgressDisplay::redrawIfDue() {
  if (Clock::now() - last_drawn_ >= kRedrawInterval) redraw();
}

void ProgressDisplay::redraw() {
  SmallString text(kClearLine);
  text.append(statusLine(snapshotLocked(), terminalWidth(output_)).view());
  writeAll(text.view());
  status_shown_ = true;
  last_drawn_ = Clock::now();
}

void ProgressDisplay::clearStatusLine() {
  if (!status_shown_) return;
  writeAll(kClearLine);
  status_shown_ = false;
}

void ProgressDisplay::writeAll(std::string_view bytes) const {
  qm::writeAll(output_, bytes.data(), bytes.size());
}

// A log line goes above the status line: the status line makes room, the log line is written
// as it would be without the display, with one write, and the status line comes back below it.
void ProgressDisplay::writeLogLine(void* display, LogLine& line) {
  auto* self = static_cast<ProgressDisplay*>(display);
  std::lock_guard<std::mutex> lock(self->mutex_);
  self->clearStatusLine();
  *line.pos = '\n';
  writeOnce(self->output_, line.start, static_cast<std::size_t>(line.pos - line.start) + 1);
  self->redraw();
}

bool progressWanted(const ConversionOptions& options) {
  return !options.non_interactive && isTerminal(standardErrorHandle());
}

int terminalWidth(OutputHandle output) {
  int columns = terminalColumns(output);
  return columns > 0 ? columns : 80;
}

}  // namespace qm
