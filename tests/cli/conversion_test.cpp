// Converting real folders with the built program: names, options, containers and failures.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/cli/program_folder.h"
#include "tests/support/container_writer.h"
#include "tests/support/logger_files.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

std::string unfinalizedFile(int records = 6) { return twoGroupLoggerFile(1, records); }

class Conversion : public ProgramFolder {
 protected:
  void passwords(const std::string& lines) { put("passwords.json", "{\n" + lines + "}\n"); }
};

TEST_F(Conversion, FolderIsMirroredWithOnlyLoggerFilesConverted) {
  put("logs/a.MF4", unfinalizedFile());
  put("logs/2023/b.mfe", unfinalizedFile());
  put("logs/2023/deep/c.mfm", unfinalizedFile());
  put("logs/notes.txt", "not a log");
  put("logs/d.mf", unfinalizedFile());
  ProgramRun r = run({"logs"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "");
  EXPECT_TRUE(exists("logs_out/a_fin.MF4"));
  EXPECT_TRUE(exists("logs_out/2023/b_fin.MF4"));
  EXPECT_TRUE(exists("logs_out/2023/deep/c_fin.MF4"));
  EXPECT_FALSE(exists("logs_out/notes_fin.MF4"));
  EXPECT_FALSE(exists("logs_out/d_fin.MF4"));
  EXPECT_EQ(read("logs_out/a_fin.MF4").substr(0, 8), "MDF     ");
  EXPECT_TRUE(exists("logs/a.MF4"));  // inputs stay without -d
}

TEST_F(Conversion, OutputDirectoryAndNoAppendRoot) {
  put("in/logs/a.MF4", unfinalizedFile());
  put("in/b.MF4", unfinalizedFile());
  fs::create_directories(path("out"));
  ProgramRun r = runProgram(QM_BINARY, {"-O", path("out"), "logs", "b.MF4"}, path("in"));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(exists("out/logs_out/a_fin.MF4"));
  EXPECT_TRUE(exists("out/b_fin.MF4"));
  EXPECT_FALSE(exists("in/logs_out"));

  fs::remove_all(path("out"));
  fs::create_directories(path("out"));
  r = runProgram(QM_BINARY, {"-X", "-O", path("out"), "logs"}, path("in"));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(exists("out/logs/a_fin.MF4"));
}

// A failing input stops no other and is kept, with -d too: a missing file, a file that is no
// MDF4 file, and two whose outputs cannot be written because a folder stands where the output or
// its temporary file goes.
TEST_F(Conversion, FailuresStopNoOtherInputAndKeepTheirOwn) {
  for (const char* name : {"a.MF4", "b.MF4", "d.MF4", "e.MF4"}) put(name, unfinalizedFile());
  put("c.MF4", "this is not an MDF4 file at all, just text long enough to be read");
  fs::create_directories(path("b_fin.MF4.partial"));
  fs::create_directories(path("d_fin.MF4"));
  ProgramRun r = run({"-d", "a.MF4", "b.MF4", "missing.MF4", "c.MF4", "d.MF4", "e.MF4"});
  EXPECT_EQ(r.status, 1);
  for (const char* stem : {"a", "e"}) {
    EXPECT_FALSE(exists(std::string(stem) + ".MF4")) << stem;
    EXPECT_TRUE(exists(std::string(stem) + "_fin.MF4")) << stem;
  }
  for (const char* stem : {"b", "c", "d"}) {
    EXPECT_TRUE(exists(std::string(stem) + ".MF4")) << stem;
    EXPECT_TRUE(hasError(r.err, "Error during conversion of " + std::string(stem) + ".MF4")) << r.err;
  }
  EXPECT_FALSE(exists("c_fin.MF4"));
  EXPECT_TRUE(fs::is_directory(path("d_fin.MF4")));
  EXPECT_FALSE(exists("d_fin.MF4.partial"));
  // What stood in the way is said before the line that counts the input as failed.
  std::size_t open = errorAt(r.err, "Could not open output file for finalization: b_fin.MF4");
  EXPECT_LT(open, errorAt(r.err, "Error during conversion of b.MF4")) << r.err;
  open = errorAt(r.err, "Could not open output file for finalization: d_fin.MF4");
  std::size_t why = errorAt(r.err, "d_fin.MF4: Is a directory");
  EXPECT_LT(open, why) << r.err;
  EXPECT_LT(why, errorAt(r.err, "Error during conversion of d.MF4")) << r.err;
}

// Any read-ahead gives the same bytes. The large file is mapped, scanned by two threads and
// written while the next piece is gathered, or read piece by piece.
TEST_F(Conversion, BufferSizesGiveIdenticalOutputs) {
  const struct {
    int records;
    std::vector<const char*> buffers;
    std::size_t least_size;
  } cases[] = {{40, {"-1", "0", "13", "4096"}, 300}, {5'000'000, {"0", "-1", "65536"}, 14u << 20}};
  for (const auto& c : cases) {
    put("a.MF4", unfinalizedFile(c.records));
    std::string reference;
    for (const char* buffer : c.buffers) {
      ProgramRun r = run({"-b", buffer, "a.MF4"});
      ASSERT_EQ(r.status, 0) << buffer << r.err;
      std::string converted = read("a_fin.MF4");
      if (reference.empty()) reference = converted;
      EXPECT_TRUE(converted == reference) << c.records << " records, buffer " << buffer;
    }
    EXPECT_GT(reference.size(), c.least_size);
  }
}

TEST_F(Conversion, ContainersUnwrapInAnyOrderWithTheirPasswords) {
  std::string plain_output;
  put("plain.MF4", unfinalizedFile());
  ASSERT_EQ(run({"plain.MF4"}).status, 0);
  plain_output = read("plain_fin.MF4");

  passwords("  \"1A2B\": \"right\",\n  \"default\": \"fallback\"\n");
  put("c.MFC", makeCompressedContainer(unfinalizedFile(), 0x1A2B, 11, 4));
  put("e.MFE", makeEncryptedContainer(unfinalizedFile(), 0x1A2B, "right"));
  put("d.MFE", makeEncryptedContainer(unfinalizedFile(), 0xBEEF, "fallback"));
  put("ce.MFE", makeCompressedContainer(makeEncryptedContainer(unfinalizedFile(), 0x1A2B, "right"), 7, 8, 4));
  put("ec.MFE", makeEncryptedContainer(makeCompressedContainer(unfinalizedFile(), 7, 10, 5), 0x1A2B, "right"));
  ProgramRun r = run({"--verbosity=3", "c.MFC", "e.MFE", "d.MFE", "ce.MFE", "ec.MFE"});
  EXPECT_EQ(r.status, 0) << r.err;
  for (const char* name : {"c_fin.MF4", "e_fin.MF4", "d_fin.MF4", "ce_fin.MF4", "ec_fin.MF4"}) {
    EXPECT_EQ(read(name), plain_output) << name;
  }
  EXPECT_NE(r.err.find(" I Found compressed file\n"), std::string::npos);
  EXPECT_NE(r.err.find(" I Found encrypted file\n"), std::string::npos);
}

TEST_F(Conversion, WrongOrMissingPasswordsFailThatFileOnly) {
  passwords("  \"1a2b\": \"lower-case ids never match\",\n  \"00001A2C\": \"nor do leading zeros\",\n"
            "  \"1A2D\": \"wrong\"\n");
  put("lower.MFE", makeEncryptedContainer(unfinalizedFile(), 0x1A2B, "lower-case ids never match"));
  put("zeros.MFE", makeEncryptedContainer(unfinalizedFile(), 0x1A2C, "nor do leading zeros"));
  put("wrong.MFE", makeEncryptedContainer(unfinalizedFile(), 0x1A2D, "right"));
  put("plain.MF4", unfinalizedFile());
  ProgramRun r = run({"lower.MFE", "plain.MF4", "wrong.MFE", "zeros.MFE"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(exists("plain_fin.MF4"));
  EXPECT_FALSE(exists("lower_fin.MF4"));
  EXPECT_FALSE(exists("wrong_fin.MF4"));
  EXPECT_NE(r.err.find(" E No password found for device 1A2B\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(" E No password found for device 1A2C\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(" E Error during conversion of wrong.MFE\n"), std::string::npos) << r.err;
}

TEST_F(Conversion, PasswordFileProblemsAreOnlyWarnings) {
  put("a.MF4", unfinalizedFile());
  ProgramRun named_missing = run({"-p", "nowhere.json", "a.MF4"});
  EXPECT_EQ(named_missing.status, 0) << named_missing.err;
  ProgramRun shown = run({"--verbosity=2", "-p", "nowhere.json", "a.MF4"});
  EXPECT_NE(shown.err.find(" W Failed to open password file at nowhere.json\n"), std::string::npos) << shown.err;

  // An absolute path to the password file works from anywhere, and of two values for one key
  // the first counts (the warning about the second: PasswordText.FirstValueWinsWithOneWarning).
  passwords("  \"1A2B\": \"one\",\n  \"1A2B\": \"two\"\n");
  put("e.MFE", makeEncryptedContainer(unfinalizedFile(), 0x1A2B, "one"));
  fs::create_directories(path("elsewhere"));
  ProgramRun absolute = runProgram(QM_BINARY, {"-p", path("passwords.json"), path("e.MFE")}, path("elsewhere"));
  EXPECT_EQ(absolute.status, 0) << absolute.err;
  EXPECT_TRUE(exists("e_fin.MF4"));
}

// Containers nested too deep, or of a type no logger writes, fail that file; a layer that is not
// peeled is not announced as found.
TEST_F(Conversion, ContainersTooDeepOrOfUnknownTypeFailAlone) {
  std::string deep = unfinalizedFile();
  for (int i = 0; i < 32; ++i) deep = makeCompressedContainer(deep, 1, 8, 4);
  put("deep32.MFC", deep);
  put("deep33.MFC", makeCompressedContainer(deep, 1, 8, 4));
  std::string odd = makeCompressedContainer(unfinalizedFile(), 1, 8, 4);
  odd[14] = 99;
  put("odd.MF4", odd);
  ProgramRun r = run({"deep32.MFC", "deep33.MFC"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(exists("deep32_fin.MF4"));
  EXPECT_FALSE(exists("deep33_fin.MF4"));
  EXPECT_TRUE(hasError(r.err, "Error during conversion of deep33.MFC")) << r.err;
  r = run({"--verbosity=3", "odd.MF4"});
  EXPECT_EQ(r.status, 1);
  std::size_t failed = errorAt(r.err, "Error during conversion of odd.MF4");
  EXPECT_NE(failed, std::string::npos) << r.err;
  EXPECT_LT(errorAt(r.err, "odd.MF4: unknown container type 99"), failed) << r.err;
  EXPECT_EQ(r.err.find("Found"), std::string::npos);
}

}  // namespace
}  // namespace qm::test
