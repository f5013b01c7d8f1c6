// A run that deletes its inputs is killed at random moments (the kill is what is tried here, not
// a power cut, so the files live in memory-backed /dev/shm where there is one: flushing is free). Whenever it dies, every input
// either still exists or has a complete output, no file under a final output name is partial,
// and a second run finishes the work. QM_CRASH_RUNS sets how many kills (30 by default) and
// stops by signal (12); QM_CRASH_SEED picks other moments.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <thread>

#include "tests/cli/program_folder.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

constexpr int kInputCount = 50;

int environmentNumber(const char* name, int fallback) {
  const char* text = std::getenv(name);
  return text ? std::atoi(text) : fallback;
}

fs::path fastTemporaryFolder() {
  return fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
}

std::string inputName(int i) { return "f" + std::to_string(i) + (i % 3 == 0 ? ".MFC" : ".MF4"); }
std::string outputName(int i) { return "f" + std::to_string(i) + "_fin.MF4"; }

class CrashSafety : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(pristine());
    for (int i = 0; i < kInputCount; ++i) {
      std::vector<std::string> args = {"--size", std::to_string(16 + 2 * i) + "k", "--seed", std::to_string(i + 1),
                                       "--out", (pristine() / inputName(i)).string()};
      if (i % 3 == 0) args.push_back("--compress");
      ASSERT_EQ(runProgram(QM_MDFGEN, args, ".").status, 0);
    }
  }
  fs::path pristine() const { return dir_.path() / "pristine"; }
  fs::path work() const { return dir_.path() / "work"; }
  fs::path inputs() const { return work() / "logs"; }
  fs::path outputs() const { return work() / "out/logs_out"; }

  void freshInputs() {
    fs::remove_all(work());
    fs::create_directories(work() / "out");
    fs::copy(pristine(), inputs());
  }
  ProgramProcess start(std::vector<std::string> options = {}) {
    for (const char* argument : {"-d", "-O", "out", "logs"}) options.emplace_back(argument);
    return ProgramProcess(QM_BINARY, options, work().string());
  }

  // What must hold at every moment: nothing lost, nothing partial under a final name.
  void expectNothingLost() {
    for (int i = 0; i < kInputCount; ++i) {
      if (fs::exists(inputs() / inputName(i))) continue;
      EXPECT_TRUE(fs::exists(outputs() / outputName(i))) << inputName(i) << " is gone without its output";
    }
    if (!fs::exists(outputs())) return;
    for (const auto& entry : fs::directory_iterator(outputs())) {
      if (entry.path().extension() == ".MF4") {
        EXPECT_TRUE(verifiesMdf(entry.path().string())) << entry.path() << " is partial";
      }
    }
  }

  void expectNoTemporaryFile() {
    if (!fs::exists(outputs())) return;
    for (const auto& entry : fs::directory_iterator(outputs())) {
      EXPECT_NE(entry.path().extension(), ".partial") << entry.path();
    }
  }

  // `converted_now` lists the inputs of the finishing run: only their outputs are new.
  void expectAllConverted(const std::vector<int>& converted_now) {
    for (int i = 0; i < kInputCount; ++i) {
      EXPECT_FALSE(fs::exists(inputs() / inputName(i)));
      EXPECT_TRUE(fs::exists(outputs() / outputName(i))) << outputName(i);
    }
    for (int i : converted_now) EXPECT_TRUE(verifiesMdf((outputs() / outputName(i)).string())) << outputName(i);
    expectNoTemporaryFile();
  }

  std::vector<int> remainingInputs() const {
    std::vector<int> remaining;
    for (int i = 0; i < kInputCount; ++i) {
      if (fs::exists(inputs() / inputName(i))) remaining.push_back(i);
    }
    return remaining;
  }

  // Stops runs at random moments within the time a whole run takes, by each signal in turn, and
  // lets the next run finish the work each time.
  void stopAtRandomMoments(const std::vector<int>& signals, const std::vector<std::string>& options, unsigned seed,
                           int runs) {
    freshInputs();
    const std::vector<int> all = remainingInputs();
    auto began = std::chrono::steady_clock::now();
    ASSERT_EQ(start(options).wait().status, 0);
    auto whole_run = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - began);
    expectAllConverted(all);

    std::mt19937 random(static_cast<unsigned>(environmentNumber("QM_CRASH_SEED", static_cast<int>(seed))));
    std::uniform_int_distribution<long> moment(0, whole_run.count());
    runs = environmentNumber("QM_CRASH_RUNS", runs);
    for (int run = 0; run < runs && !HasFailure(); ++run) {
      const int stop = signals[static_cast<std::size_t>(run) % signals.size()];
      SCOPED_TRACE("stop " + std::to_string(run) + " by signal " + std::to_string(stop));
      freshInputs();
      ProgramProcess stopped = start(options);
      std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
      kill(stopped.pid(), stop);
      ProgramRun ended = stopped.wait();
      EXPECT_TRUE(ended.status == 1000 + stop || ended.status == 0) << ended.status;
      expectNothingLost();
      if (stop != SIGKILL) expectNoTemporaryFile();
      std::vector<int> remaining = remainingInputs();
      ProgramRun second = start().wait();
      EXPECT_EQ(second.status, 0) << second.err;
      expectAllConverted(remaining);
    }
  }

  TempDir dir_{fastTemporaryFolder()};
};

TEST_F(CrashSafety, KilledAtAnyMomentARunLosesNothingAndTheNextOneFinishes) {
  stopAtRandomMoments({SIGKILL}, {}, 20261122, 30);
}

// Ctrl-C, a batch system's time limit or a closed terminal: a run stopped so, while it converts
// two files at a time, removes the temporary files of those still running, still ends of that
// signal, loses nothing, and the next run finishes the work.
TEST_F(CrashSafety, StoppedByASignalAtAnyMomentARunLeavesNoTemporaryFile) {
  stopAtRandomMoments({SIGINT, SIGTERM, SIGHUP}, {"-j", "2"}, 20261123, 12);
}

}  // namespace
}  // namespace qm::test
