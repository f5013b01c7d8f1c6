// A fleet's logs: runs that convert only what changed, and shards that split a tree among
// several processes writing into one output tree.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>

#include "tests/cli/program_folder.h"
#include "tests/support/container_writer.h"
#include "tests/support/logger_files.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

std::string loggerFile(std::uint16_t seed) { return twoGroupLoggerFile(seed, 30); }

// 24 recordings of three cars and a compressed one.
class Fleet : public ProgramFolder {
 protected:
  void SetUp() override {
    for (std::uint16_t i = 0; i < 24; ++i) put("logs/car" + std::to_string(i % 3) + "/t" + std::to_string(i) + ".MF4", loggerFile(i));
    put("logs/car1/z.MFC", makeCompressedContainer(loggerFile(99), 0x42, 10, 4));
  }
  std::map<std::string, std::string> outputs(const std::string& folder) { return filesBelow(path(folder)); }
};

TEST_F(Fleet, FourShardsAtOnceGiveExactlyTheUnshardedOutputs) {
  for (const char* out : {"whole", "one", "shared", "out0", "out1", "out2", "out3"}) fs::create_directories(path(out));
  ASSERT_EQ(run({"-O", "whole", "logs"}).status, 0);
  const auto expected = outputs("whole");
  ASSERT_EQ(expected.size(), 25u);
  ASSERT_EQ(run({"--shard=0/1", "-O", "one", "logs"}).status, 0);
  EXPECT_EQ(outputs("one"), expected) << "one shard of one is the whole tree";

  // Into one output folder each, to see who converted what, then all into one shared tree.
  std::map<std::string, std::string> united;
  for (bool shared : {false, true}) {
    std::vector<std::unique_ptr<ProgramProcess>> shards;
    for (int k = 0; k < 4; ++k) {
      std::string out = shared ? "shared" : "out" + std::to_string(k);
      shards.push_back(std::make_unique<ProgramProcess>(
          QM_BINARY, std::vector<std::string>{"--shard=" + std::to_string(k) + "/4", "-O", out, "logs"}, path("")));
    }
    for (auto& shard : shards) {
      ProgramRun r = shard->wait();
      EXPECT_EQ(r.status, 0);
      EXPECT_EQ(r.err, "");
    }
    if (shared) break;
    for (int k = 0; k < 4; ++k) {
      auto part = outputs("out" + std::to_string(k));
      EXPECT_FALSE(part.empty()) << "shard " << k << " got no file";
      for (const auto& [name, bytes] : part) {
        EXPECT_TRUE(united.emplace(name, bytes).second) << name << " converted by two shards";
      }
    }
  }
  EXPECT_EQ(united, expected);
  EXPECT_EQ(outputs("shared"), expected);
}

TEST_F(Fleet, SecondRunWithUpdateConvertsNothingUntilAnInputChanges) {
  ASSERT_EQ(run({"-u", "logs"}).status, 0);
  const auto first = outputs("logs_out");
  const auto written = fs::last_write_time(path("logs_out/car0/t0_fin.MF4"));

  ProgramRun again = run({"-u", "--verbosity=3", "logs"});
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(occurrences(again.err, " I Up to date: logs/"), 25u) << again.err;
  EXPECT_NE(again.err.find(" I Up to date: logs/car1/z.MFC\n"), std::string::npos);
  EXPECT_EQ(outputs("logs_out"), first);
  EXPECT_EQ(fs::last_write_time(path("logs_out/car0/t0_fin.MF4")), written);

  // One recording is written anew: only it is converted again.
  put("logs/car2/t5.MF4", loggerFile(500));
  fs::last_write_time(path("logs/car2/t5.MF4"), fs::last_write_time(path("logs_out/car2/t5_fin.MF4")) + std::chrono::seconds(5));
  ProgramRun third = run({"-u", "--verbosity=3", "logs"});
  EXPECT_EQ(occurrences(third.err, " I Up to date: "), 24u);
  EXPECT_EQ(third.err.find("Up to date: logs/car2/t5.MF4"), std::string::npos);
  auto now = outputs("logs_out");
  EXPECT_NE(now["car2/t5_fin.MF4"], first.at("car2/t5_fin.MF4"));
  now["car2/t5_fin.MF4"] = first.at("car2/t5_fin.MF4");
  EXPECT_EQ(now, first);
}

TEST_F(Fleet, InputsSkippedByUpdateAreNeverDeleted) {
  ASSERT_EQ(run({"logs"}).status, 0);
  put("logs/car0/new.MF4", loggerFile(77));
  fs::last_write_time(path("logs/car0/new.MF4"), fs::file_time_type::clock::now() + std::chrono::seconds(5));
  ProgramRun r = run({"-u", "-d", "--jobs=2", "logs"});
  EXPECT_EQ(r.status, 0);
  EXPECT_FALSE(exists("logs/car0/new.MF4")) << "the one converted input is removed";
  EXPECT_TRUE(exists("logs_out/car0/new_fin.MF4"));
  EXPECT_EQ(outputs("logs").size(), 25u) << "every skipped input stays";
}

// An up-to-date output is not written again, so it replaces nothing, even where it is itself a
// file of the walked folder.
TEST_F(Fleet, UpToDateOutputInsideTheWalkedFolderIsNoCollision) {
  fs::remove_all(path("logs"));
  put("logs/a.MF4", loggerFile(1));
  ASSERT_EQ(run({"-X", "logs/a.MF4"}).status, 0);
  ProgramRun r = run({"-u", "-X", "--verbosity=3", "logs"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find(" I Up to date: logs/a.MF4\n"), std::string::npos) << r.err;
  EXPECT_TRUE(exists("logs/a_fin_fin.MF4")) << "the walk takes the output for an input, as always";
}

}  // namespace
}  // namespace qm::test
