// One run over a folder of thousands of small files: every file handle is given back, on
// success and on failure, so the run never meets the open-files limit.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/container_writer.h"
#include "tests/support/logger_files.h"
#include "tests/support/run_program.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

constexpr int kFileCount = 3000;

std::size_t countOutputs(const fs::path& folder) {
  std::size_t count = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.path().filename().string().ends_with("_fin.MF4")) ++count;
  }
  return count;
}

// One at a time, one worker per processor, and far more workers than the open-file limit allows.
class ManyFiles : public ::testing::TestWithParam<const char*> {};

TEST_P(ManyFiles, ThousandsOfInputsConvertInOneRunUnderTheUsualFileLimit) {
  TempDir dir;
  writeFile(dir / "passwords.json", "{\n  \"default\": \"pw\"\n}\n");
  const std::string plain = twoGroupLoggerFile(7, 2);
  const std::string compressed = makeCompressedContainer(plain, 0x42, 8, 4);
  const std::string encrypted = makeEncryptedContainer(plain, 0x42, "pw", 1);
  int damaged = 0;
  for (int i = 0; i < kFileCount; ++i) {
    std::string folder = dir / ("logs/part" + std::to_string(i % 7));
    std::string name = "f" + std::to_string(i);
    if (i % 100 == 0) {
      writeFile(folder + "/" + name + ".mf4", plain.substr(0, 100));  // fails: the header block is cut
      ++damaged;
    } else if (i % 10 == 1) {
      writeFile(folder + "/" + name + ".mfc", compressed);
    } else if (i % 10 == 2) {
      writeFile(folder + "/" + name + ".mfe", encrypted);
    } else {
      writeFile(folder + "/" + name + ".MF4", plain);
    }
  }
  // 1024 is the usual default soft limit; a machine that allows more would hide a leak.
  ProgramRun run = runProgram("/bin/sh", {"-c", "ulimit -n 1024 2>/dev/null; exec \"$0\" \"$@\"", QM_BINARY, "--jobs", GetParam(), "logs"},
                              dir.path().string());
  EXPECT_EQ(run.status, 1);  // the damaged files fail, the others convert
  EXPECT_EQ(countOutputs(dir.path() / "logs_out"), static_cast<std::size_t>(kFileCount - damaged));
  EXPECT_EQ(readFile(dir / "logs_out/part1/f1_fin.MF4").substr(0, 8), "MDF     ");
  EXPECT_EQ(readFile(dir / "logs_out/part2/f2_fin.MF4"), readFile(dir / "logs_out/part3/f3_fin.MF4"));
}

INSTANTIATE_TEST_SUITE_P(Jobs, ManyFiles, ::testing::Values("1", "0", "2000"));

}  // namespace
}  // namespace qm::test
