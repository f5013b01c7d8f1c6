#include "app/progress_line.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace qm {
namespace {

// Below this many columns a file name says too little to be worth showing.
constexpr std::size_t kMinNameColumns = 12;
constexpr std::string_view kCutMark = "...";

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Columns a UTF-8 text takes, one per character.
std::size_t columnsOf(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return !isContinuationByte(c); }));
}

// A name with control characters in it (a newline, an escape) would break the line apart.
SmallString printable(std::string_view name) {
  SmallString out;
  for (char c : name) {
    char shown = static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '?' : c;
    out.append(&shown, 1);
  }
  return out;
}

// The end of `text` that takes at most `columns` columns, starting on a character boundary.
std::string_view tailOf(std::string_view text, std::size_t columns) {
  std::size_t at = text.size();
  for (std::size_t taken = 0; at > 0 && taken < columns; ++taken) {
    --at;
    while (at > 0 && isContinuationByte(text[at])) --at;
  }
  return text.substr(at);
}

// The end of a path tells most about it, so a long one keeps its end.
void appendShortened(SmallString& line, std::string_view name, std::size_t columns) {
  SmallString shown = printable(name);
  if (columnsOf(shown.view()) <= columns) {
    line.append(shown.view());
    return;
  }
  line.append(kCutMark);
  line.append(tailOf(shown.view(), columns - kCutMark.size()));
}

std::int64_t filesDone(const ProgressSnapshot& p) {
  return p.files_converted + p.files_lossy + p.files_failed + p.files_skipped;
}

double bytesPerSecond(const ProgressSnapshot& p) {
  return p.elapsed_seconds > 0 ? static_cast<double>(p.bytes_done) / p.elapsed_seconds : 0;
}

double secondsLeft(const ProgressSnapshot& p, std::uint64_t bytes_total) {
  double rate = bytesPerSecond(p);
  if (p.bytes_done == 0 || rate <= 0) return -1;
  return static_cast<double>(bytes_total - p.bytes_done) / rate;
}

// The figures, most telling first: a line too narrow for all of them keeps the front ones. Files
// may appear after they were counted, so the totals never fall below what is done.
using Figures = std::array<SmallString, 4>;

Figures figures(const ProgressSnapshot& p) {
  std::int64_t done = filesDone(p);
  std::int64_t files_total = std::max(p.files_total, done);
  std::uint64_t bytes_total = std::max(p.bytes_total, p.bytes_done);
  return {
      SmallString::format("%lld/%lld files", static_cast<long long>(done), static_cast<long long>(files_total)),
      SmallString::format("%s/%s", formatBytes(p.bytes_done).c_str(), formatBytes(bytes_total).c_str()),
      SmallString::format("%s/s", formatBytes(static_cast<std::uint64_t>(bytesPerSecond(p))).c_str()),
      SmallString::format("%s left", formatTimeLeft(secondsLeft(p, bytes_total)).c_str()),
  };
}

}  // namespace

SmallString statusLine(const ProgressSnapshot& progress, int width) {
  constexpr std::string_view kSeparator = ", ";
  std::size_t columns = width > 1 ? static_cast<std::size_t>(width - 1) : 0;
  Figures shown = figures(progress);
  SmallString line;
  std::size_t used = 0;
  bool all_fit = true;
  for (const SmallString& field : shown) {
    std::size_t needed = (used > 0 ? kSeparator.size() : 0) + columnsOf(field.view());
    if (used + needed > columns) {
      all_fit = false;
      break;
    }
    if (used > 0) line.append(kSeparator);
    line.append(field.view());
    used += needed;
  }
  if (used == 0) {
    // Not even the file count fits: a part of it still says more than nothing. It is plain ASCII.
    line = shown[0];
    line.truncate(std::min(columns, line.size()));
    return line;
  }
  // The name comes only after every figure, and only with room enough to be recognised.
  if (!all_fit || progress.current_file.empty()) return line;
  std::size_t room = columns - used;
  if (room < kSeparator.size() + kMinNameColumns) return line;
  line.append(kSeparator);
  appendShortened(line, progress.current_file, room - kSeparator.size());
  return line;
}

SmallString summaryLine(const ProgressSnapshot& progress) {
  // Files with records dropped are told apart from clean ones, and only when there are any.
  SmallString lossy;
  if (progress.files_lossy > 0) {
    lossy = SmallString::format("%lld converted with losses, ", static_cast<long long>(progress.files_lossy));
  }
  return SmallString::format("Converted %lld file%s, %s%lld failed, %lld skipped, %s in %s",
                             static_cast<long long>(progress.files_converted), progress.files_converted == 1 ? "" : "s",
                             lossy.c_str(), static_cast<long long>(progress.files_failed),
                             static_cast<long long>(progress.files_skipped),
                             formatBytes(progress.bytes_converted).c_str(),
                             formatElapsed(progress.elapsed_seconds).c_str());
}

SmallString formatBytes(std::uint64_t bytes) {
  if (bytes < 1024) return SmallString::format("%llu B", static_cast<unsigned long long>(bytes));
  static const char* const kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double value = static_cast<double>(bytes) / 1024;
  int unit = 0;
  while (value >= 1024 && unit < 5) {
    value /= 1024;
    ++unit;
  }
  return SmallString::format("%.1f %s", value, kUnits[unit]);
}

SmallString formatTimeLeft(double seconds) {
  // Beyond a few days an estimate says nothing.
  if (!(seconds >= 0) || seconds > 1e6) return SmallString("--:--");
  long long total = std::llround(seconds);
  long long hours = total / 3600;
  if (hours > 0) return SmallString::format("%lld:%02lld:%02lld", hours, total / 60 % 60, total % 60);
  return SmallString::format("%lld:%02lld", total / 60, total % 60);
}

SmallString formatElapsed(double seconds) {
  if (!(seconds >= 0)) seconds = 0;
  if (seconds < 59.95) return SmallString::format("%.1f s", seconds);
  long long total = std::llround(seconds);
  if (total < 3600) return SmallString::format("%lldm %02llds", total / 60, total % 60);
  return SmallString::format("%lldh %02lldm %02llds", total / 3600, total / 60 % 60, total % 60);
}

}  // namespace qm
