// Whatever a folder holds, a run never costs a recording and never hides a failure: after each
// run every recording is still an input or completely in an output, each failure is said with
// its reason and counted in the exit status, and no byte of a file reaches the terminal raw.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <random>

#include "tests/cli/program_folder.h"
#include "tests/support/text_shape.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kDamageAt = 1'000'000;
constexpr std::size_t kDamageLength = 4000;
constexpr char kLinePrefix[] = R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d\d\d +\d+ +\d+ [A-Z] )";

// Records per channel group and values per signal data, keyed by the verifier's name for each
// ("group CAN_DataFrame", "signal data of CAN_DataFrame.DataBytes").
using RecordCounts = std::map<std::string, std::uint64_t>;

RecordCounts recordCounts(const std::string& file) {
  RecordCounts counts;
  std::unique_ptr<FileSource> source = FileSource::open(file);
  if (!source) return counts;
  for (const std::string& line : verifyMdfFile(*source).content_lines) {
    std::size_t colon = line.find(": ");
    if (colon != std::string::npos) counts[line.substr(0, colon)] = std::stoull(line.substr(colon + 2));
  }
  return counts;
}

// How many of the records in `all` are missing from `got`.
std::uint64_t missingRecords(const RecordCounts& all, const RecordCounts& got) {
  std::uint64_t missing = 0;
  for (const auto& [name, count] : all) {
    auto found = got.find(name);
    std::uint64_t have = found == got.end() ? 0 : found->second;
    if (have < count) missing += count - have;
  }
  return missing;
}

std::string findSetpriv() {
  for (const char* candidate : {"/usr/bin/setpriv", "/bin/setpriv", "/usr/sbin/setpriv"}) {
    if (access(candidate, X_OK) == 0) return candidate;
  }
  return {};
}

class NothingLost : public ProgramFolder {
 protected:
  void TearDown() override {
    // Locked folders would stop the temporary folder from being removed.
    for (const std::string& locked : locked_) {
      std::error_code ignored;
      fs::permissions(locked, fs::is_directory(locked) ? fs::perms(0777) : fs::perms(0666), ignored);
    }
  }

  // As a user whom file modes stop: this user, or user nobody when the tests run as root.
  ProgramRun runAsOrdinaryUser(const std::vector<std::string>& args, const std::string& folder = "") {
    if (setpriv_.empty()) return run(args, folder);
    std::vector<std::string> full = {"--reuid=65534", "--regid=65534", "--clear-groups", QM_BINARY};
    full.insert(full.end(), args.begin(), args.end());
    return runProgram(setpriv_, full, path(folder));
  }
  // Call once the files are in place and before locking any: the reason to skip, if any.
  std::optional<std::string> prepareOrdinaryUser() {
    if (geteuid() != 0) return std::nullopt;
    setpriv_ = findSetpriv();
    if (setpriv_.empty()) return "running as root, and setpriv is missing to run the program as another user";
    fs::permissions(dir_.path(), fs::perms(0777));
    for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
      fs::permissions(entry.path(), entry.is_directory() ? fs::perms(0777) : fs::perms(0666));
    }
    if (runAsOrdinaryUser({"--version"}).status != 0) return "user nobody cannot run " + std::string(QM_BINARY);
    return std::nullopt;
  }
  void lock(const std::string& relative, unsigned mode) {
    locked_.push_back(path(relative));
    fs::permissions(path(relative), fs::perms(mode));
  }

  std::string generated(const std::string& name, const std::string& size, int seed,
                        std::vector<std::string> options = {}) {
    fs::create_directories(path("gen"));
    options.insert(options.end(), {"--size", size, "--seed", std::to_string(seed), "--out", path("gen/" + name)});
    EXPECT_EQ(runProgram(QM_MDFGEN, options, ".").status, 0) << name;
    return read("gen/" + name);
  }
  void freshFolders() {
    fs::remove_all(path("logs"));
    fs::remove_all(path("logs_out"));
  }
  bool anyPathContaining(const std::string& part) {
    for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
      if (entry.path().string().find(part) != std::string::npos) return true;
    }
    return false;
  }

  std::string setpriv_;
  std::vector<std::string> locked_;
};

TEST_F(NothingLost, DamagedStretchIsReportedAndItsInputKept) {
  const std::string pristine = generated("a.MF4", "2M", 3);
  put("alone/a.MF4", pristine);
  ASSERT_EQ(run({"alone"}).status, 0);
  const RecordCounts all = recordCounts(path("alone_out/a_fin.MF4"));
  ASSERT_GT(all.size(), 1u);

  auto overwrite = [](std::function<char()> next) {
    return [next](std::string& bytes) {
      for (std::size_t i = 0; i < kDamageLength; ++i) bytes[kDamageAt + i] = next();
    };
  };
  struct Case {
    const char* name;
    std::function<void(std::string&)> damage;
    bool lossy;
    std::uint64_t may_miss;  // records that need not reach the output although the input is gone
  };
  std::mt19937 random(20261125);
  const Case cases[] = {
      {"0xFF stretch", overwrite([] { return '\xFF'; }), true, 0},
      // Record id 0 is not one of the generated file's.
      {"zero stretch", overwrite([] { return '\0'; }), true, 0},
      {"random stretch", overwrite([&random] { return static_cast<char>(random() & 0xFF); }), true, 0},
      {"undamaged", [](std::string&) {}, false, 0},
      // Its last record was never completely written, so there is nothing to lose.
      {"cut inside its last record", [](std::string& bytes) { bytes.resize(bytes.size() - 5); }, false, 1},
  };
  for (const Case& c : cases) {
    std::string damaged = pristine;
    c.damage(damaged);
    for (bool remove : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + (remove ? " with -d" : " without -d"));
      freshFolders();
      put("logs/a.MF4", damaged);
      ProgramRun r = run(remove ? std::vector<std::string>{"-d", "logs"} : std::vector<std::string>{"logs"});
      EXPECT_EQ(r.status, 0) << r.err;
      ASSERT_TRUE(exists("logs_out/a_fin.MF4"));
      const RecordCounts got = recordCounts(path("logs_out/a_fin.MF4"));
      const std::string lost = " E Data lost converting logs/a.MF4: ";
      if (c.lossy) {
        EXPECT_EQ(occurrences(r.err, lost), 1u) << r.err;
        std::size_t at = r.err.find(lost);
        ASSERT_NE(at, std::string::npos);
        std::string details = r.err.substr(at + lost.size(), r.err.find('\n', at) - at - lost.size());
        EXPECT_TRUE(hasShape(details, R"(\d+ bytes dropped from offset \d+: (record id \d+ is not known|)"
                                      R"(a record of id \d+ claims \d+ bytes, more than the data holds))"))
            << details;
        // The drop starts where the damage does, not at some earlier or later place.
        std::size_t from = details.find(" from offset ");
        std::uint64_t offset = from == std::string::npos ? 0 : std::stoull(details.substr(from + 13));
        EXPECT_GE(offset + 64, kDamageAt) << details;
        EXPECT_LE(offset, kDamageAt + kDamageLength) << details;
        EXPECT_TRUE(exists("logs/a.MF4"));
        EXPECT_GT(missingRecords(all, got), 0u);
      } else {
        EXPECT_EQ(r.err.find("Data lost"), std::string::npos) << r.err;
        EXPECT_EQ(exists("logs/a.MF4"), !remove);
      }
      // Nothing lost: the input is still there, or the output holds every record.
      if (!c.lossy || !exists("logs/a.MF4")) {
        EXPECT_LE(missingRecords(all, got), c.may_miss);
      }
    }
  }
}

TEST_F(NothingLost, WalkNeverEntersItsOwnOutputFolder) {
  put("logs/a.MF4", generated("a.MF4", "100k", 1));
  put("logs/sub/b.MF4", generated("b.MF4", "100k", 2));
  for (int round = 1; round <= 3; ++round) {
    SCOPED_TRACE("'.' run " + std::to_string(round));
    ProgramRun r = run({"."}, "logs");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(exists("logs/._out/a_fin.MF4"));
    EXPECT_TRUE(exists("logs/._out/sub/b_fin.MF4"));
    EXPECT_FALSE(anyPathContaining("_fin_fin"));
    EXPECT_FALSE(anyPathContaining("._out/._out"));
  }
  fs::remove_all(path("logs/._out"));
  for (int round = 1; round <= 2; ++round) {
    SCOPED_TRACE("-O logs run " + std::to_string(round));
    ProgramRun r = run({"-O", "logs", "logs"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(exists("logs/logs_out/a_fin.MF4"));
    EXPECT_FALSE(anyPathContaining("_fin_fin"));
    EXPECT_FALSE(anyPathContaining("logs_out/logs_out"));
  }
}

// Each failing input gets its reason, said before the line that counts it as failed.
TEST_F(NothingLost, FailuresSayWhy) {
  const std::string encrypted = generated("e.MFE", "100k", 1, {"--encrypt", "right", "--device-id", "1A2B"});
  std::string hostile = encrypted;
  hostile.replace(32, 4, std::string("\x00\x98\x96\x81", 4));  // 10 000 001 rounds, big-endian
  struct Case {
    const char* input;
    std::string bytes;
    std::string reason;
  };
  const Case cases[] = {
      {"logs/e.MFE", encrypted, "logs/e.MFE: wrong password for device 1A2B, or the file is damaged"},
      {"logs/empty.MF4", "", "logs/empty.MF4: the file is empty"},
      {"logs/text.MF4", "hello world, not a measurement", "logs/text.MF4: not an MDF4 file"},
      // Refused before the key derivation, which would take minutes.
      {"logs/rounds.MFE", hostile, "Encrypted file logs/rounds.MFE asks for 10000001 key derivation rounds; more "
                                   "than 10000000 are refused"},
  };
  put("passwords.json", "{\n  \"1A2B\": \"wrong\"\n}\n");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    freshFolders();
    put(c.input, c.bytes);
    ProgramRun r = run({"-d", "-p", "passwords.json", "logs"});
    EXPECT_EQ(r.status, 1);
    std::size_t reason = errorAt(r.err, c.reason);
    EXPECT_NE(reason, std::string::npos) << r.err;
    EXPECT_LT(reason, errorAt(r.err, "Error during conversion of " + std::string(c.input))) << r.err;
    EXPECT_TRUE(exists(c.input));
  }
}

// A folder that cannot be listed, an input that cannot be read and one that cannot be removed:
// each is said with its reason, and the rest is converted.
TEST_F(NothingLost, RefusedAccessSaysWhyAndTheRestIsConverted) {
  const std::string log = generated("a.MF4", "100k", 1);
  put("unlisted/logs/locked/b.MF4", log);
  put("unlisted/logs/ok/a.MF4", log);
  put("unreadable/logs/a.MF4", log);
  put("unwritable/logs/ro/a.MF4", log);
  if (auto skip = prepareOrdinaryUser()) GTEST_SKIP() << *skip;
  lock("unlisted/logs/locked", 0);
  lock("unreadable/logs/a.MF4", 0);
  lock("unwritable/logs/ro", 0555);

  ProgramRun whole = runAsOrdinaryUser({"logs"}, "unlisted");
  EXPECT_EQ(whole.status, 1);
  EXPECT_TRUE(hasError(whole.err, "Could not list folder logs/locked: Permission denied")) << whole.err;
  EXPECT_TRUE(exists("unlisted/logs_out/ok/a_fin.MF4"));
  ProgramRun alone = runAsOrdinaryUser({"logs/locked"}, "unlisted");
  EXPECT_EQ(alone.status, 1) << alone.err;
  EXPECT_NE(alone.err.find(" E Could not list folder "), std::string::npos) << alone.err;

  ProgramRun unopened = runAsOrdinaryUser({"-d", "logs"}, "unreadable");
  EXPECT_EQ(unopened.status, 1);
  std::size_t open = errorAt(unopened.err, "Could not open input file logs/a.MF4");
  std::size_t why = errorAt(unopened.err, "logs/a.MF4: Permission denied");
  EXPECT_NE(open, std::string::npos) << unopened.err;
  EXPECT_LT(open, why) << unopened.err;
  EXPECT_LT(why, errorAt(unopened.err, "Error during conversion of logs/a.MF4")) << unopened.err;
  EXPECT_TRUE(exists("unreadable/logs/a.MF4"));

  // The conversion itself succeeded: only the removal is reported, and the run still succeeds.
  ProgramRun kept = runAsOrdinaryUser({"-d", "logs"}, "unwritable");
  EXPECT_EQ(kept.status, 0) << kept.err;
  std::size_t remove = errorAt(kept.err, "Could not remove input file after conversion: logs/ro/a.MF4");
  EXPECT_NE(remove, std::string::npos) << kept.err;
  EXPECT_LT(remove, errorAt(kept.err, "logs/ro/a.MF4: Permission denied")) << kept.err;
  EXPECT_EQ(kept.err.find("Error during conversion"), std::string::npos) << kept.err;
  EXPECT_TRUE(exists("unwritable/logs/ro/a.MF4"));
  EXPECT_TRUE(exists("unwritable/logs_out/ro/a_fin.MF4"));
}

TEST_F(NothingLost, FileBytesNeverReachTheTerminalRaw) {
  std::string evil = "X\nFAKE\x1b[31m";
  evil.resize(100, '.');
  put("logs/evil.MF4", evil);
  // This seed puts four control bytes among the first eight, which the refusal quotes.
  std::mt19937 random(28);
  std::string noise(64 * 1024, '\0');
  for (char& byte : noise) byte = static_cast<char>(random() & 0xFF);
  put("logs/noise.MF4", noise);
  put("logs/bad\x1bname.MF4", "a note, not a measurement");

  ProgramRun r = run({"logs"});
  EXPECT_EQ(r.status, 1);
  for (const std::string* stream : {&r.out, &r.err}) {
    auto raw = std::find_if(stream->begin(), stream->end(), [](char byte) {
      auto code = static_cast<unsigned char>(byte);
      return code != '\n' && (code < 0x20 || code == 0x7F);
    });
    EXPECT_TRUE(raw == stream->end()) << "byte " << int(*raw) << " at " << raw - stream->begin() << " of\n" << *stream;
  }
  std::size_t start = 0;
  for (std::size_t end = r.err.find('\n'); end != std::string::npos; start = end + 1, end = r.err.find('\n', start)) {
    std::string line = r.err.substr(start, end - start);
    EXPECT_NE(shapedPrefixLength(line, kLinePrefix), std::string::npos) << line;
  }
  EXPECT_EQ(start, r.err.size()) << "the last line is unfinished";
  EXPECT_NE(r.err.find("X\\x0aFAKE\\x1b"), std::string::npos) << r.err;
  EXPECT_TRUE(hasError(r.err, "logs/bad\\x1bname.MF4: not an MDF4 file")) << r.err;
  EXPECT_TRUE(hasError(r.err, "Error during conversion of logs/bad\\x1bname.MF4")) << r.err;
  EXPECT_TRUE(hasError(r.err, "Error during conversion of logs/noise.MF4")) << r.err;
}

}  // namespace
}  // namespace qm::test
