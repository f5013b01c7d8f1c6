#pragma once
// The texts of the progress display: the status line that is redrawn while files convert, and
// the summary line that replaces it at the end.
#include <cstdint>
#include <string_view>

#include "base/small_string.h"

namespace qm {

// How far a run has come at one moment.
struct ProgressSnapshot {
  std::int64_t files_total = 0;
  std::int64_t files_converted = 0;  // cleanly; the lossy ones are not among them
  std::int64_t files_lossy = 0;      // converted, but with records dropped
  std::int64_t files_failed = 0;
  std::int64_t files_skipped = 0;
  std::uint64_t bytes_total = 0;      // of the files to convert; skipped files are taken out
  std::uint64_t bytes_done = 0;       // of the files finished, converted or failed
  std::uint64_t bytes_converted = 0;  // of the files converted
  double elapsed_seconds = 0;
  std::string_view current_file;  // the file started most recently
};

// "3/47 files, 1.2 GiB/3.4 GiB, 85.3 MiB/s, 0:27 left, logs/a.MF4", at most `width` - 1
// columns so that the terminal never wraps it. A long file name loses its front; when the line
// is still too long, whole fields go from the end (the name, then time left, rate and bytes), and
// only the file count alone is ever cut short. Lossy files count as done.
SmallString statusLine(const ProgressSnapshot& progress, int width);

// "Converted 47 files, 2 failed, 0 skipped, 1.2 GiB in 12.3 s"; with lossy files,
// "Converted 45 files, 2 converted with losses, 2 failed, 0 skipped, 1.2 GiB in 12.3 s".
SmallString summaryLine(const ProgressSnapshot& progress);

// "512 B", "1.5 KiB", "1.2 GiB"
SmallString formatBytes(std::uint64_t bytes);
// "0:27", "1:02:03"; "--:--" when the time is not known.
SmallString formatTimeLeft(double seconds);
// "12.3 s", "4m 05s", "1h 02m 03s"
SmallString formatElapsed(double seconds);

}  // namespace qm
