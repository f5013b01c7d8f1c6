#include "app/progress_line.h"

#include <gtest/gtest.h>

#include <string>

namespace qm {
namespace {

constexpr std::uint64_t kMiB = 1024 * 1024;
constexpr std::string_view kFigures = "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left";

// Four files, one converted and one failed; half the bytes done in two seconds.
ProgressSnapshot halfway(std::string_view file, std::int64_t lossy = 0, std::int64_t files_total = 4,
                         std::uint64_t bytes_total = 4 * kMiB) {
  return {.files_total = files_total, .files_converted = 1, .files_lossy = lossy, .files_failed = 1,
          .bytes_total = bytes_total, .bytes_done = 2 * kMiB, .bytes_converted = kMiB, .elapsed_seconds = 2,
          .current_file = file};
}

// Columns of a UTF-8 text.
std::size_t columns(std::string_view text) {
  std::size_t n = 0;
  for (char c : text) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return n;
}

TEST(StatusLine, ShowsTheFiguresAndTheFileWithTotalsNeverBelowWhatIsDone) {
  const std::string unicode = "fahrt/\xC3\xBC" "berland_gr\xC3\xB6\xC3\x9F" "e.MF4";  // 24 characters in 27 bytes
  const std::string figures(kFigures);
  const struct {
    const char* what;
    ProgressSnapshot snapshot;
    int width;
    std::string line;
  } cases[] = {
      {"halfway", halfway("logs/a.MF4"), 80, figures + ", logs/a.MF4"},
      {"no estimate before anything is done", {.files_total = 3, .bytes_total = 1536, .current_file = ""}, 80,
       "0/3 files, 0 B/1.5 KiB, 0 B/s, --:-- left"},
      {"files that appeared after counting", halfway("", 0, 1, kMiB), 80, "2/2 files, 2.0 MiB/2.0 MiB, 1.0 MiB/s, 0:00 left"},
      {"lossy files count as done", halfway("", 2), 80, "4/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left"},
      {"more done than counted", halfway("", 3), 80, "5/5 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left"},
      {"control characters cannot break the line", halfway("a\nb\033c\rd.MF4"), 80, figures + ", a?b?c?d.MF4"},
      {"a name measured in characters", halfway(unicode), 75, figures + ", " + unicode},
      {"... and cut by one", halfway(unicode), 74, figures + ", ...t/\xC3\xBC" "berland_gr\xC3\xB6\xC3\x9F" "e.MF4"},
  };
  for (const auto& c : cases) EXPECT_EQ(statusLine(c.snapshot, c.width), c.line) << c.what;
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
  // The figures take 48 columns; the name needs a separator and 12 columns of its own. Each
  // field is seen on both sides of the width where it goes.
  const struct {
    int width;
    std::string_view line;
  } kCases[] = {
      {77, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, logs/2023/06/trip_0042.MF4"},
      {76, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, .../2023/06/trip_0042.MF4"},
      {63, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left, ..._0042.MF4"},
      {62, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left"},
      {49, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s, 0:02 left"},
      {48, "2/4 files, 2.0 MiB/4.0 MiB, 1.0 MiB/s"},
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

TEST(SummaryLine, CountsFilesBytesAndTimeWithLossyFilesOnlyWhenThereAreAny) {
  // Files converted, converted with losses, failed and skipped; bytes converted; seconds.
  auto finished = [](std::int64_t converted, std::int64_t lossy, std::int64_t failed, std::int64_t skipped,
                     std::uint64_t bytes, double seconds) {
    return summaryLine({.files_converted = converted, .files_lossy = lossy, .files_failed = failed,
                        .files_skipped = skipped, .bytes_converted = bytes, .elapsed_seconds = seconds,
                        .current_file = ""});
  };
  constexpr std::uint64_t k1_2GiB = 1288490189;
  EXPECT_EQ(finished(47, 0, 2, 0, k1_2GiB, 12.34), "Converted 47 files, 2 failed, 0 skipped, 1.2 GiB in 12.3 s");
  EXPECT_EQ(finished(1, 0, 0, 3, 10, 3725), "Converted 1 file, 0 failed, 3 skipped, 10 B in 1h 02m 05s");
  EXPECT_EQ(finished(45, 2, 2, 0, k1_2GiB, 12.34),
            "Converted 45 files, 2 converted with losses, 2 failed, 0 skipped, 1.2 GiB in 12.3 s");
  EXPECT_EQ(finished(0, 1, 2, 0, k1_2GiB, 12.34),
            "Converted 0 files, 1 converted with losses, 2 failed, 0 skipped, 1.2 GiB in 12.3 s");
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
