// --salvage from the command line: damaged logger files, plain and inside containers, come out
// with the records behind their damage, one warning line per stretch and the loss line, and
// their inputs stay.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "tests/cli/program_folder.h"
#include "tests/support/container_writer.h"
#include "tests/support/text_shape.h"
#include "tools/mdfgen/byte_sink.h"
#include "tools/mdfgen/logger_file_writer.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kDevice = 0x1A2B;
constexpr const char* kPassword = "salvage-test";

// A generated logger file with a stretch of zeros and one of 0xFF in its records.
std::string damagedLoggerFile() {
  StringSink sink;
  LoggerFileSettings settings;
  settings.size = 200 * 1024;
  settings.seed = 11;
  EXPECT_TRUE(writeLoggerFile(settings, sink));
  std::string bytes = sink.bytes();
  bytes.replace(60000, 700, std::string(700, '\0'));
  bytes.replace(150000, 3000, std::string(3000, '\xff'));
  return bytes;
}

using Salvage = ProgramFolder;

TEST_F(Salvage, DamagedFilesInAnyWrappingAreSalvagedReportedAndKept) {
  const std::string plain = damagedLoggerFile();
  put("logs/plain.MF4", plain);
  put("logs/packed.MFC", makeCompressedContainer(plain, kDevice, 11, 4));
  put("logs/locked.MFE", makeEncryptedContainer(plain, kDevice, kPassword, 1));
  put("passwords.json", std::string("{\n  \"1A2B\": \"") + kPassword + "\"\n}\n");

  ProgramRun r = run({"--salvage", "-d", "--verbosity=2", "logs"});

  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "");
  std::vector<std::string> skipped;
  std::vector<std::string> lost;
  std::istringstream err(r.err);
  for (std::string line; std::getline(err, line);) {
    if (line.find(" W Skipped ") != std::string::npos) skipped.push_back(line);
    if (line.find(" E Data lost converting ") != std::string::npos) lost.push_back(line);
  }
  // Two stretches in each of the three files, at the same offsets of the unwrapped file.
  ASSERT_EQ(skipped.size(), 6u) << r.err;
  for (const std::string& line : skipped) {
    EXPECT_TRUE(hasShape(line.substr(line.find(" W ")),
                         " W Skipped [0-9]+ damaged bytes at offset (6[0-9]{4}|15[0-9]{4}) of "
                         "logs/(plain\\.MF4|packed\\.MFC|locked\\.MFE); [0-9]+ records recovered after it"))
        << line;
  }
  EXPECT_EQ(lost.size(), 3u);
  for (const char* name : {"plain", "packed", "locked"}) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(verifiesMdf(path(std::string("logs_out/") + name + "_fin.MF4")));
  }
  // Lossy conversions keep their inputs, even with -d.
  for (const char* input : {"logs/plain.MF4", "logs/packed.MFC", "logs/locked.MFE"}) EXPECT_TRUE(exists(input));
  // The same records from every wrapping.
  EXPECT_EQ(read("logs_out/plain_fin.MF4"), read("logs_out/packed_fin.MF4"));
  EXPECT_EQ(read("logs_out/plain_fin.MF4"), read("logs_out/locked_fin.MF4"));
}

TEST_F(Salvage, WithoutTheOptionTheScanStillStopsAtTheFirstStretch) {
  put("a.MF4", damagedLoggerFile());
  ProgramRun plain = run({"--verbosity=2", "a.MF4"});
  EXPECT_EQ(plain.status, 0);
  EXPECT_EQ(plain.err.find("Skipped"), std::string::npos);
  const std::uint64_t stopped = fs::file_size(path("a_fin.MF4"));
  ProgramRun salvaged = run({"--salvage", "-b", "0", "a.MF4"});
  EXPECT_EQ(salvaged.status, 0);
  // At the default verbosity the warnings are not shown, the loss line is.
  EXPECT_EQ(salvaged.err.find("Skipped"), std::string::npos);
  EXPECT_NE(salvaged.err.find(" E Data lost converting a.MF4: "), std::string::npos);
  EXPECT_GT(fs::file_size(path("a_fin.MF4")), stopped + 80 * 1024);
  EXPECT_TRUE(verifiesMdf(path("a_fin.MF4")));
}

}  // namespace
}  // namespace qm::test
