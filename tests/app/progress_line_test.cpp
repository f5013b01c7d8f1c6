#include "app/progress_line.h"

#include <gtest/gtest.h>

#include <string>

namespace qm {
namespace {

constexpr std::uint64_t kMiB = 1024 * 1024;

ProgressSnapshot halfway(std::string_view file) {
  ProgressSnapshot p;
  p.files_total = 4;
  p.files_converted = 1;
  p.files_failed = 1;
  p.bytes_total = 4 * kMiB;
  p.bytes_done = 2 * kMiB;
  p.bytes_converted = kMiB;
  p.elapsed_seconds = 2;
  p.current_file = file;
  return p;
}

// Columns of a UTF-8 text.
std::size_t columns(std::string_view text) {
  std::size_t n = 0;
  for (char c : text) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return n;
}

TEST(StatusLine, ShowsFilesBytesRateTimeLeftAndTheFile) {
  EXPECT_EQ(statusLine(halfway("logs/a.MF4"), 80), "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, logs/a.MF4");
}

TEST(StatusLine, BeforeAnythingIsDoneThereIsNoEstimate) {
  ProgressSnapshot p;
  p.files_total = 3;
  p.bytes_total = 1536;
  EXPECT_EQ(statusLine(p, 80), "0/3 files, 0 B/1.5 KiB, 0 B/s, --:-- left");
}

TEST(StatusLine, TotalsNeverFallBelowWhatIsDone) {
  // Files that appeared after counting.
  ProgressSnapshot p = halfway("");
  p.files_total = 1;
  p.bytes_total = kMiB;
  EXPECT_EQ(statusLine(p, 80), "2/2 files, 2.0 MiB/2.0 MiB, 1.0 MiB/s, 0:00 left");
}

TEST(StatusLine, LongNameKeepsItsEndAndTheLineFitsTheTerminal) {
  std::string name = "logs/2023/06/" + std::string(100, 'x') + "/trip_0042.MF4";
  for (int width : {80, 120, 200}) {
    SmallString line = statusLine(halfway(name), width);
    EXPECT_LE(line.size(), static_cast<std::size_t>(width - 1)) << width;
    EXPECT_EQ(line.view().substr(line.size() - 14), "/trip_0042.MF4") << line.c_str();
  }
  SmallString line = statusLine(halfway(name), 80);
  EXPECT_EQ(line.size(), 79u) << "a shortened name takes all the room there is";
  EXPECT_NE(line.view().find(", ..."), std::string_view::npos);
}

TEST(StatusLine, NarrowTerminalDropsWholeFieldsFromTheEnd) {
  // The figures take 48 columns; the name needs a separator and 12 columns of its own.
  const struct {
    int width;
    std::string_view line;
  } kCases[] = {
      {100, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, logs/2023/06/trip_0042.MF4"},
      {77, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, logs/2023/06/trip_0042.MF4"},
      {76, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, .../2023/06/trip_0042.MF4"},
      {63, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, ..._0042.MF4"},
      {62, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left"},
      {60, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left"},
      {49, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left"},
      {48, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s"},
      {40, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s"},
      {38, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s"},
      {37, "2/4 files, 2.0 MiB/4.0 MiB"},
      {27, "2/4 files, 2.0 MiB/4.0 MiB"},
      {26, "2/4 files"},
      {10, "2/4 files"},
      // Only the file count alone is ever cut.
      {9, "2/4 file"},
      {5, "2/4 "},
      {2, "2"},
      {1, ""},
      {0, ""},
      {-3, ""},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(statusLine(halfway("logs/2023/06/trip_0042.MF4"), c.width), c.line) << "width " << c.width;
  }
}

TEST(StatusLine, UnicodeNameIsMeasuredInCharacters) {
  // 24 characters in 27 bytes.
  std::string_view name = "fahrt/\xC3\xBC" "berland_gr\xC3\xB6\xC3\x9F" "e.MF4";
  EXPECT_EQ(statusLine(halfway(name), 75), "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, " + std::string(name));
  EXPECT_EQ(statusLine(halfway(name), 74),
            "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, ...t/\xC3\xBC" "berland_gr\xC3\xB6\xC3\x9F" "e.MF4");
}

TEST(StatusLine, MultiByteNamesAreCutBetweenCharactersAndCountedByColumns) {
  std::string name;
  for (int i = 0; i < 40; ++i) name += "\xC3\xA4";  // ä
  name += ".MF4";
  SmallString line = statusLine(halfway(name), 70);
  std::size_t cut = line.view().find("...");
  ASSERT_NE(cut, std::string_view::npos);
  EXPECT_NE(static_cast<unsigned char>(line.view()[cut + 3]) & 0xC0, 0x80) << "starts on a character";
  EXPECT_EQ(columns(line.view()), 69u);
}

TEST(StatusLine, ControlCharactersInANameCannotBreakTheLine) {
  EXPECT_EQ(statusLine(halfway("a\nb\033c\rd.MF4"), 80),
            "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, a?b?c?d.MF4");
}

TEST(SummaryLine, CountsBytesAndTime) {
  ProgressSnapshot p;
  p.files_converted = 47;
  p.files_failed = 2;
  p.bytes_converted = 1288490189;  // 1.2 GiB
  p.elapsed_seconds = 12.34;
  EXPECT_EQ(summaryLine(p), "Converted 47 files, 2 failed, 0 skipped, 1.2 GiB in 12.3 s");
  p.files_converted = 1;
  p.files_failed = 0;
  p.files_skipped = 3;
  p.bytes_converted = 10;
  p.elapsed_seconds = 3725;
  EXPECT_EQ(summaryLine(p), "Converted 1 file, 0 failed, 3 skipped, 10 B in 1h 02m 05s");
}

TEST(SummaryLine, LossyFilesAreCountedApartAndOnlyWhenThereAreAny) {
  ProgressSnapshot p;
  p.files_converted = 45;
  p.files_lossy = 2;
  p.files_failed = 2;
  p.bytes_converted = 1288490189;  // 1.2 GiB
  p.elapsed_seconds = 12.34;
  EXPECT_EQ(summaryLine(p), "Converted 45 files, 2 converted with losses, 2 failed, 0 skipped, 1.2 GiB in 12.3 s");
  p.files_converted = 0;
  p.files_lossy = 1;
  EXPECT_EQ(summaryLine(p), "Converted 0 files, 1 converted with losses, 2 failed, 0 skipped, 1.2 GiB in 12.3 s");
}

TEST(StatusLine, LossyFilesCountAsDone) {
  ProgressSnapshot p = halfway("");
  p.files_lossy = 2;
  EXPECT_EQ(statusLine(p, 80), "4/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left");
  p.files_lossy = 3;  // more done than counted: the total follows
  EXPECT_EQ(statusLine(p, 80), "5/5 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left");
}

TEST(ProgressFigures, BytesTimeLeftAndElapsed) {
  EXPECT_EQ(formatBytes(0), "0 B");
  EXPECT_EQ(formatBytes(1023), "1023 B");
  EXPECT_EQ(formatBytes(1024), "1.0 KiB");
  EXPECT_EQ(formatBytes(5 * kMiB + kMiB / 2), "5.5 MiB");
  EXPECT_EQ(formatBytes(std::uint64_t{3} << 40), "3.0 TiB");
  EXPECT_EQ(formatBytes(UINT64_MAX), "16.0 EiB");

  EXPECT_EQ(formatTimeLeft(0), "0:00");
  EXPECT_EQ(formatTimeLeft(27.4), "0:27");
  EXPECT_EQ(formatTimeLeft(3723), "1:02:03");
  EXPECT_EQ(formatTimeLeft(-1), "--:--");
  EXPECT_EQ(formatTimeLeft(1e12), "--:--");

  EXPECT_EQ(formatElapsed(0.04), "0.0 s");
  EXPECT_EQ(formatElapsed(59.9), "59.9 s");
  EXPECT_EQ(formatElapsed(59.96), "1m 00s");
  EXPECT_EQ(formatElapsed(245), "4m 05s");
}

}  // namespace
}  // namespace qm
