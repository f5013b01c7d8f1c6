// What the program guarantees about the user's files: no output written twice, no input lost
// to a name collision, a failed write or a shortened input, and no half-written output under a
// final name.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>

#include <filesystem>

#include "tests/support/container_writer.h"
#include "tests/support/logger_files.h"
#include "tests/support/run_program.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

std::string loggerFile(std::uint16_t seed) { return twoGroupLoggerFile(seed, 64); }

class DataSafety : public ::testing::Test {
 protected:
  ProgramRun run(const std::vector<std::string>& args, ChildLimits limits = {}) {
    return runProgram(QM_BINARY, args, dir_.path().string(), limits);
  }
  std::string path(const std::string& relative) { return dir_ / relative; }
  bool exists(const std::string& relative) { return fs::exists(path(relative)); }
  void put(const std::string& relative, const std::string& bytes) { writeFile(path(relative), bytes); }
  std::string read(const std::string& relative) { return readFile(path(relative)); }
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

  TempDir dir_;
};

// Two recordings that share a stem: the first keeps its output, the second is not converted, and
// both stay, even with deletion asked for, so that no later run can put the second one's data
// in place of the first one's output. The run says so.
TEST_F(DataSafety, InputsSharingAStemNeverShareAnOutput) {
  for (bool append_root : {false, true}) {
    SCOPED_TRACE(append_root ? "into logs_out" : "into logs (-X)");
    fs::remove_all(dir_.path());
    fs::create_directories(dir_.path());
    const std::string first = loggerFile(1);
    const std::string expected = convertedAlone(first);
    put("logs/x.MF4", first);
    put("logs/x.MFC", makeCompressedContainer(loggerFile(2), 0x1A2B, 11, 4));
    const std::string out = append_root ? "logs_out" : "logs";

    ProgramRun r = append_root ? run({"-d", "logs"}) : run({"-d", "-X", "logs"});

    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(read(out + "/x_fin.MF4"), expected);
    EXPECT_TRUE(exists("logs/x.MF4"));
    EXPECT_TRUE(exists("logs/x.MFC"));
    EXPECT_NE(r.err.find(" E Not converting logs/x.MFC: its output " + out +
                         "/x_fin.MF4 is already the output of logs/x.MF4\n"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find(" E Error during conversion of logs/x.MFC\n"), std::string::npos);
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
  ProgramRun r = run({"-d", "logs"}, {.file_size = 8 * 1024});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(exists("logs/a.MF4"));
  EXPECT_FALSE(exists("logs_out/a_fin.MF4"));
  EXPECT_FALSE(anyPartialFile());
  EXPECT_NE(r.err.find(" E Could not write output file logs_out/a_fin.MF4: File too large\n"), std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find(" E Error during conversion of logs/a.MF4\n"), std::string::npos);
}

TEST_F(DataSafety, HostileKeyDerivationCountIsRefusedBeforeAnyWork) {
  std::string container = makeEncryptedContainer(loggerFile(1), 0x1A2B, "secret");
  const std::uint8_t rounds[4] = {0x00, 0x98, 0x96, 0x81};  // 10 000 001, big-endian after the nonce
  container.replace(32, 4, reinterpret_cast<const char*>(rounds), 4);
  put("logs/e.MFE", container);
  put("passwords.json", "{\n\"1A2B\": \"secret\"\n}\n");
  ProgramRun r = run({"logs"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(" E Encrypted file logs/e.MFE asks for 10000001 key derivation rounds; more than 10000000 "
                       "are refused\n"),
            std::string::npos)
      << r.err;
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
