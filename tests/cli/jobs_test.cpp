// Many files at once: with several jobs a run gives the same outputs, results, messages and exit
// status as one at a time; only the order of lines of different files may differ.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "tests/cli/program_folder.h"
#include "tests/support/container_writer.h"
#include "tests/support/logger_files.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

std::string loggerFile(std::uint16_t seed) { return twoGroupLoggerFile(seed, 40); }

// A fleet's folder: plain, compressed, encrypted and nested files in sub-folders, a damaged
// file, an encrypted file without a password, two inputs sharing a stem, and a text file.
void writeMixedFolder(const TempDir& dir) {
  writeFile(dir / "passwords.json", "{\n  \"1A2B\": \"pw\"\n}\n");
  for (std::uint16_t i = 0; i < 6; ++i) {
    const std::string n = std::to_string(i);
    writeFile(dir / ("logs/p" + n + ".MF4"), loggerFile(i));
    writeFile(dir / ("logs/2023/c" + n + ".MFC"), makeCompressedContainer(loggerFile(10 + i), 0x1A2B, 10, 4));
    writeFile(dir / ("logs/2023/06/e" + n + ".MFE"), makeEncryptedContainer(loggerFile(20 + i), 0x1A2B, "pw", 1, i + 1));
    writeFile(dir / ("logs/2024/n" + n + ".mfm"),
              makeEncryptedContainer(makeCompressedContainer(loggerFile(30 + i), 0x1A2B, 11, 4), 0x1A2B, "pw", 1, i + 7));
  }
  writeFile(dir / "logs/2023/damaged.MF4", loggerFile(1).substr(0, 90));
  writeFile(dir / "logs/2024/locked.MFE", makeEncryptedContainer(loggerFile(40), 0xBEEF, "other", 1));
  writeFile(dir / "logs/twin.MF4", loggerFile(50));
  writeFile(dir / "logs/twin.MFC", makeCompressedContainer(loggerFile(51), 0x1A2B, 9, 4));
  writeFile(dir / "logs/notes.txt", "not a log");
}

// The log lines without their time stamps and ids, in a fixed order.
std::vector<std::string> sortedLogLines(const std::string& err) {
  std::vector<std::string> lines;
  std::istringstream in(withoutLogPrefixes(err));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

struct Outcome {
  ProgramRun run;
  std::map<std::string, std::string> files;
};

Outcome convertMixedFolder(const std::vector<std::string>& options, const std::string& jobs) {
  TempDir dir;
  writeMixedFolder(dir);
  fs::create_directories(dir.path() / "out");
  std::vector<std::string> args = options;
  args.insert(args.end(), {"--verbosity=3", "--jobs", jobs, "logs"});
  Outcome outcome{runProgram(QM_BINARY, args, dir.path().string()), {}};
  outcome.files = filesBelow(dir.path());
  return outcome;
}

class Jobs : public ::testing::TestWithParam<std::vector<std::string>> {};

TEST_P(Jobs, SeveralJobsGiveWhatOneAtATimeGives) {
  Outcome one = convertMixedFolder(GetParam(), "1");
  Outcome four = convertMixedFolder(GetParam(), "4");
  EXPECT_EQ(one.run.status, 1) << "the damaged, locked and twin inputs fail";
  EXPECT_EQ(four.run.status, one.run.status);
  EXPECT_EQ(four.run.out, one.run.out);
  EXPECT_EQ(sortedLogLines(four.run.err), sortedLogLines(one.run.err));
  ASSERT_EQ(four.files.size(), one.files.size());
  for (const auto& [name, bytes] : one.files) {
    auto other = four.files.find(name);
    ASSERT_NE(other, four.files.end()) << name;
    EXPECT_TRUE(other->second == bytes) << name << " differs";
  }
  EXPECT_GE(one.files.size(), 30u);
}

INSTANTIATE_TEST_SUITE_P(Options, Jobs,
                         ::testing::Values(std::vector<std::string>{}, std::vector<std::string>{"-d"},
                                           std::vector<std::string>{"-d", "-O", "out"},
                                           std::vector<std::string>{"-X", "-d"}));

}  // namespace
}  // namespace qm::test
