// A fleet's logs: runs that convert only what changed, and shards that split a tree among
// several processes writing into one output tree.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>

#include "tests/support/container_writer.h"
#include "tests/support/logger_files.h"
#include "tests/support/run_program.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

std::string loggerFile(std::uint16_t seed) { return twoGroupLoggerFile(seed, 30); }

void writeFleetFolder(const fs::path& dir) {
  for (std::uint16_t i = 0; i < 24; ++i) {
    std::string folder = "logs/car" + std::to_string(i % 3) + "/";
    writeFile((dir / (folder + "t" + std::to_string(i) + ".MF4")).string(), loggerFile(i));
  }
  writeFile((dir / "logs/car1/z.MFC").string(), makeCompressedContainer(loggerFile(99), 0x42, 10, 4));
}

std::map<std::string, std::string> snapshot(const fs::path& root) {
  std::map<std::string, std::string> files;
  if (!fs::exists(root)) return files;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_regular_file()) files[fs::relative(entry.path(), root).string()] = readFile(entry.path().string());
  }
  return files;
}

std::size_t countLines(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(Shards, FourShardsAtOnceGiveExactlyTheUnshardedOutputs) {
  TempDir dir;
  writeFleetFolder(dir.path());
  fs::create_directories(dir.path() / "whole");
  ASSERT_EQ(runProgram(QM_BINARY, {"-O", "whole", "logs"}, dir.path().string()).status, 0);
  const auto expected = snapshot(dir.path() / "whole");
  ASSERT_EQ(expected.size(), 25u);

  // Into one output folder each, to see who converted what, then all into one shared tree.
  std::map<std::string, std::string> united;
  for (bool shared : {false, true}) {
    std::vector<std::unique_ptr<ProgramProcess>> shards;
    for (int k = 0; k < 4; ++k) {
      std::string out = shared ? "shared" : "out" + std::to_string(k);
      fs::create_directories(dir.path() / out);
      shards.push_back(std::make_unique<ProgramProcess>(
          QM_BINARY, std::vector<std::string>{"--shard=" + std::to_string(k) + "/4", "-O", out, "logs"},
          dir.path().string()));
    }
    for (auto& shard : shards) {
      ProgramRun r = shard->wait();
      EXPECT_EQ(r.status, 0);
      EXPECT_EQ(r.err, "");
    }
    if (shared) break;
    for (int k = 0; k < 4; ++k) {
      auto part = snapshot(dir.path() / ("out" + std::to_string(k)));
      EXPECT_FALSE(part.empty()) << "shard " << k << " got no file";
      for (const auto& [name, bytes] : part) {
        EXPECT_TRUE(united.emplace(name, bytes).second) << name << " converted by two shards";
      }
    }
  }
  EXPECT_EQ(united, expected);
  EXPECT_EQ(snapshot(dir.path() / "shared"), expected);
}

TEST(Shards, MalformedShardsAreMisuseAndPrintNothing) {
  TempDir dir;
  writeFleetFolder(dir.path());
  for (const char* value : {"4/4", "-1/2", "1/0", "abc", "1/2/3"}) {
    ProgramRun r = runProgram(QM_BINARY, {std::string("--shard=") + value, "logs"}, dir.path().string());
    EXPECT_EQ(r.status, 131) << value;
    EXPECT_EQ(r.out + r.err, "") << value;
  }
  EXPECT_FALSE(fs::exists(dir.path() / "logs_out"));
  EXPECT_EQ(runProgram(QM_BINARY, {"--shard=0/1", "logs"}, dir.path().string()).status, 0);
  EXPECT_EQ(snapshot(dir.path() / "logs_out").size(), 25u);
}

TEST(Update, SecondRunConvertsNothingUntilAnInputChanges) {
  TempDir dir;
  writeFleetFolder(dir.path());
  ASSERT_EQ(runProgram(QM_BINARY, {"-u", "logs"}, dir.path().string()).status, 0);
  const fs::path out = dir.path() / "logs_out";
  const auto first = snapshot(out);
  const auto written = fs::last_write_time(out / "car0/t0_fin.MF4");

  ProgramRun again = runProgram(QM_BINARY, {"-u", "--verbosity=3", "logs"}, dir.path().string());
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(countLines(again.err, " I Up to date: logs/"), 25u) << again.err;
  EXPECT_NE(again.err.find(" I Up to date: logs/car1/z.MFC\n"), std::string::npos);
  EXPECT_EQ(snapshot(out), first);
  EXPECT_EQ(fs::last_write_time(out / "car0/t0_fin.MF4"), written);

  // One recording is written anew: only it is converted again.
  const fs::path changed = dir.path() / "logs/car2/t5.MF4";
  writeFile(changed.string(), loggerFile(500));
  fs::last_write_time(changed, fs::last_write_time(out / "car2/t5_fin.MF4") + std::chrono::seconds(5));
  ProgramRun third = runProgram(QM_BINARY, {"-u", "--verbosity=3", "logs"}, dir.path().string());
  EXPECT_EQ(countLines(third.err, " I Up to date: "), 24u);
  EXPECT_EQ(third.err.find("Up to date: logs/car2/t5.MF4"), std::string::npos);
  auto now = snapshot(out);
  EXPECT_NE(now["car2/t5_fin.MF4"], first.at("car2/t5_fin.MF4"));
  now["car2/t5_fin.MF4"] = first.at("car2/t5_fin.MF4");
  EXPECT_EQ(now, first);
}

TEST(Update, SkippedInputsAreNeverDeleted) {
  TempDir dir;
  writeFleetFolder(dir.path());
  ASSERT_EQ(runProgram(QM_BINARY, {"logs"}, dir.path().string()).status, 0);
  writeFile(dir / "logs/car0/new.MF4", loggerFile(77));
  fs::last_write_time(dir / "logs/car0/new.MF4", fs::file_time_type::clock::now() + std::chrono::seconds(5));
  ProgramRun r = runProgram(QM_BINARY, {"-u", "-d", "--jobs=2", "logs"}, dir.path().string());
  EXPECT_EQ(r.status, 0);
  EXPECT_FALSE(fs::exists(dir / "logs/car0/new.MF4")) << "the one converted input is removed";
  EXPECT_TRUE(fs::exists(dir / "logs_out/car0/new_fin.MF4"));
  EXPECT_EQ(snapshot(dir.path() / "logs").size(), 25u) << "every skipped input stays";
}

// An up-to-date output is not written again, so it replaces nothing, even where it is itself a
// file of the walked folder.
TEST(Update, UpToDateOutputInsideTheWalkedFolderIsNoCollision) {
  TempDir dir;
  writeFile(dir / "logs/a.MF4", loggerFile(1));
  ASSERT_EQ(runProgram(QM_BINARY, {"-X", "logs/a.MF4"}, dir.path().string()).status, 0);
  ProgramRun r = runProgram(QM_BINARY, {"-u", "-X", "--verbosity=3", "logs"}, dir.path().string());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find(" I Up to date: logs/a.MF4\n"), std::string::npos) << r.err;
  EXPECT_TRUE(fs::exists(dir / "logs/a_fin_fin.MF4")) << "the walk takes the output for an input, as always";
}

}  // namespace
}  // namespace qm::test
