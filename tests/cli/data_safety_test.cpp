// What the program guarantees about the user's files: no output written twice, no input lost
// to a name collision, a failed write or a shortened input, and no half-written output under a
// final name.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>

#include <filesystem>

#include "tests/cli/program_folder.h"
#include "tests/support/container_writer.h"
#include "tests/support/logger_files.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

std::string loggerFile(std::uint16_t seed) { return twoGroupLoggerFile(seed, 64); }

class DataSafety : public ProgramFolder {
 protected:
  // What converting `bytes` alone gives.
  std::string convertedAlone(const std::string& bytes) {
    put("alone/x.MF4", bytes);
    EXPECT_EQ(run({"alone/x.MF4"}).status, 0);
    return read("alone/x_fin.MF4");
  }
  bool anyPartialFile() {
    for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
      if (entry.path().extension() == ".partial") return true;
    }
    return false;
  }
};

// Two recordings that share a stem, run after run: the first keeps its output, the second is not
// converted, and both stay, even with deletion asked for, so that no later run can put the
// second one's data in place of the first one's output; whether or not the run converts only
// what changed. The run says so.
TEST_F(DataSafety, InputsSharingAStemNeverShareAnOutput) {
  const std::string first = loggerFile(1);
  const std::string expected = convertedAlone(first);
  for (const std::vector<std::string>& options : {std::vector<std::string>{"-d"}, {"-d", "-X"}, {"-u", "-d"}}) {
    const std::string out = options.back() == "-X" ? "logs" : "logs_out";
    fs::remove_all(path("logs"));
    fs::remove_all(path("logs_out"));
    put("logs/x.MF4", first);
    put("logs/x.MFC", makeCompressedContainer(loggerFile(2), 0x1A2B, 11, 4));
    // A second run with -X would take the output in the walked folder for an input.
    for (int round = 1; round <= (out == "logs" ? 1 : 2); ++round) {
      SCOPED_TRACE(options.front() + options.back() + " run " + std::to_string(round));
      std::vector<std::string> args = options;
      args.insert(args.end(), {"--verbosity=3", "logs"});
      ProgramRun r = run(args);
      EXPECT_EQ(r.status, 1);
      EXPECT_EQ(read(out + "/x_fin.MF4"), expected);
      EXPECT_TRUE(exists("logs/x.MF4"));
      EXPECT_TRUE(exists("logs/x.MFC"));
      EXPECT_TRUE(hasError(r.err, "Not converting logs/x.MFC: its output " + out + "/x_fin.MF4 is already the output of "
                                  "logs/x.MF4")) << r.err;
      EXPECT_TRUE(hasError(r.err, "Error during conversion of logs/x.MFC"));
      EXPECT_EQ(r.err.find("Up to date: logs/x.MFC"), std::string::npos) << r.err;
    }
  }
}

TEST_F(DataSafety, OutputNeverReplacesAFileTheRunHasStillToConvert) {
  put("logs/a.MF4", loggerFile(1));
  const std::string later = loggerFile(2);
  put("logs/a_fin.MF4", later);
  ProgramRun r = run({"-X", "logs"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(read("logs/a_fin.MF4"), later);
  EXPECT_TRUE(exists("logs/a_fin_fin.MF4"));
  EXPECT_NE(r.err.find("E Not converting logs/a.MF4: its output logs/a_fin.MF4 would replace logs/a_fin.MF4, "
                       "which is still to be converted\n"),
            std::string::npos)
      << r.err;
}

TEST_F(DataSafety, FailedWriteKeepsTheInputAndLeavesNoOutputBehind) {
  fs::create_directories(path("logs"));
  ASSERT_EQ(runProgram(QM_MDFGEN, {"--size", "200k", "--out", path("logs/a.MF4")}, ".").status, 0);
  ProgramRun r = run({"-d", "logs"}, "", {.file_size = 8 * 1024});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(exists("logs/a.MF4"));
  EXPECT_FALSE(exists("logs_out/a_fin.MF4"));
  EXPECT_FALSE(anyPartialFile());
  EXPECT_NE(r.err.find(" E Could not write output file logs_out/a_fin.MF4: File too large\n"), std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find(" E Error during conversion of logs/a.MF4\n"), std::string::npos);
}

// Waits until a file named `name` is created in `folder`; false after ten seconds.
bool awaitCreation(int notify, const std::string& name) {
  alignas(inotify_event) char buffer[4096];
  pollfd ready{notify, POLLIN, 0};
  while (poll(&ready, 1, 10000) == 1) {
    ssize_t n = ::read(notify, buffer, sizeof buffer);
    for (ssize_t at = 0; at < n;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      if (event->len > 0 && name == event->name) return true;
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
  }
  return false;
}

// Another program cuts an input short while it is being converted: that file fails on its own,
// leaves no output, and the walk goes on with the next input.
TEST_F(DataSafety, InputShortenedDuringItsConversionFailsAloneAndTheWalkGoesOn) {
  bool caught_in_time = false;
  for (int attempt = 0; attempt < 5 && !caught_in_time; ++attempt) {
    fs::remove_all(dir_.path() / "logs");
    fs::create_directories(dir_.path() / "logs_out");
    fs::create_directories(dir_.path() / "logs");
    ASSERT_EQ(runProgram(QM_MDFGEN, {"--size", "48M", "--seed", "7", "--out", path("logs/a.MF4")}, ".").status, 0);
    put("logs/b.MF4", loggerFile(2));
    int notify = inotify_init1(IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(notify, path("logs_out").c_str(), IN_CREATE), 0);

    ProgramProcess program(QM_BINARY, {"-d", "logs"}, dir_.path().string());
    if (awaitCreation(notify, "a_fin.MF4.partial")) {
      kill(program.pid(), SIGSTOP);
      fs::resize_file(path("logs/a.MF4"), 4096);
      kill(program.pid(), SIGCONT);
    }
    ::close(notify);
    ProgramRun r = program.wait();
    caught_in_time = r.err.find("Input file changed during conversion") != std::string::npos;
    if (!caught_in_time) continue;  // the conversion was done before the file could be cut

    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find(" E Input file changed during conversion: logs/a.MF4\n"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(" E Error during conversion of logs/a.MF4\n"), std::string::npos);
    EXPECT_TRUE(exists("logs/a.MF4"));
    EXPECT_FALSE(exists("logs_out/a_fin.MF4"));
    EXPECT_FALSE(anyPartialFile());
    EXPECT_TRUE(exists("logs_out/b_fin.MF4"));
    EXPECT_FALSE(exists("logs/b.MF4"));
  }
  EXPECT_TRUE(caught_in_time) << "the input was never cut while its conversion ran";
}

}  // namespace
}  // namespace qm::test
