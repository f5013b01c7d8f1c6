// Converting real folders with the built program: names, options, containers and failures.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/container_writer.h"
#include "tests/support/mdf_builder.h"
#include "tests/support/run_program.h"

namespace qm::test {
namespace {

namespace fs = std::filesystem;

// An unfinalized logger file: two channel groups (ids 1 and 2) whose records lie interleaved.
std::string unfinalizedFile(int records = 6) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0025});
  auto speed = b.channel({.name = b.text("Speed"), .bit_count = 16});
  auto rpm = b.channel({.name = b.text("Rpm"), .byte_offset = 0, .bit_count = 32});
  auto cg2 = b.channelGroup({.first_channel = rpm, .record_id = 2, .data_bytes = 4});
  auto cg1 = b.channelGroup({.next = cg2, .first_channel = speed, .record_id = 1, .data_bytes = 2});
  std::string records_bytes;
  for (int i = 0; i < records; ++i) {
    records_bytes += i % 2 ? MdfBuilder::record(2, 1, MdfBuilder::u32(1000 + i)) : MdfBuilder::record(1, 1, MdfBuilder::u16(i));
  }
  auto dt = b.data(records_bytes);
  b.setLength(dt, 24);  // the logger never wrote the real length
  b.header({.first_data_group = b.dataGroup({.first_channel_group = cg1, .data = dt, .record_id_size = 1})});
  return b.bytes();
}

class Conversion : public ::testing::Test {
 protected:
  ProgramRun run(const std::vector<std::string>& args) { return runProgram(QM_BINARY, args, dir_.path().string()); }
  std::string path(const std::string& relative) { return dir_ / relative; }
  bool exists(const std::string& relative) { return fs::exists(path(relative)); }
  void put(const std::string& relative, const std::string& bytes) { writeFile(path(relative), bytes); }
  std::string output(const std::string& relative) { return readFile(path(relative)); }
  void passwords(const std::string& lines) { put("passwords.json", "{\n" + lines + "}\n"); }

  TempDir dir_;
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
  EXPECT_EQ(output("logs_out/a_fin.MF4").substr(0, 8), "MDF     ");
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

TEST_F(Conversion, DeleteRemovesOnlyConvertedInputs) {
  put("a.MF4", unfinalizedFile());
  put("b.MF4", unfinalizedFile());
  // The output of b cannot be created: a folder stands where its file is written.
  fs::create_directories(path("b_fin.MF4.partial"));
  ProgramRun r = run({"-d", "a.MF4", "b.MF4"});
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(exists("a.MF4"));
  EXPECT_TRUE(exists("a_fin.MF4"));
  EXPECT_TRUE(exists("b.MF4"));
  EXPECT_NE(r.err.find(" E Could not open output file for finalization: b_fin.MF4\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(" E Error during conversion of b.MF4\n"), std::string::npos) << r.err;
}

TEST_F(Conversion, FailuresDoNotStopTheOtherInputs) {
  put("a.MF4", unfinalizedFile());
  put("b.MF4", "this is not an MDF4 file at all, just text long enough to be read");
  put("c.MF4", unfinalizedFile());
  ProgramRun r = run({"a.MF4", "missing.MF4", "b.MF4", "c.MF4"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(exists("a_fin.MF4"));
  EXPECT_TRUE(exists("c_fin.MF4"));
  EXPECT_FALSE(exists("b_fin.MF4"));
  EXPECT_NE(r.err.find(" E Error during conversion of b.MF4\n"), std::string::npos) << r.err;
}

TEST_F(Conversion, BufferSizesGiveIdenticalOutputs) {
  put("a.MF4", unfinalizedFile(40));
  std::string reference;
  for (const char* buffer : {"-1", "0", "13", "4096"}) {
    ProgramRun r = run({"-b", buffer, "a.MF4"});
    ASSERT_EQ(r.status, 0) << buffer << r.err;
    std::string converted = output("a_fin.MF4");
    if (reference.empty()) reference = converted;
    EXPECT_EQ(converted, reference) << "buffer " << buffer;
  }
  EXPECT_GT(reference.size(), 300u);
}

// Large enough that the input is mapped, scanned by two threads and written while the next
// piece is gathered: still the same bytes as reading the file piece by piece.
TEST_F(Conversion, LargeFileConvertsTheSameMappedOrRead) {
  put("big.MF4", unfinalizedFile(5'000'000));
  std::string reference;
  for (const char* buffer : {"0", "-1", "65536"}) {
    ProgramRun r = run({"-b", buffer, "big.MF4"});
    ASSERT_EQ(r.status, 0) << buffer << r.err;
    std::string converted = output("big_fin.MF4");
    if (reference.empty()) reference = converted;
    EXPECT_TRUE(converted == reference) << "buffer " << buffer;
  }
  EXPECT_GT(reference.size(), 14u << 20);
}

TEST_F(Conversion, ContainersUnwrapInAnyOrderWithTheirPasswords) {
  std::string plain_output;
  put("plain.MF4", unfinalizedFile());
  ASSERT_EQ(run({"plain.MF4"}).status, 0);
  plain_output = output("plain_fin.MF4");

  passwords("  \"1A2B\": \"right\",\n  \"default\": \"fallback\"\n");
  put("c.MFC", makeCompressedContainer(unfinalizedFile(), 0x1A2B, 11, 4));
  put("e.MFE", makeEncryptedContainer(unfinalizedFile(), 0x1A2B, "right"));
  put("d.MFE", makeEncryptedContainer(unfinalizedFile(), 0xBEEF, "fallback"));
  put("ce.MFE", makeCompressedContainer(makeEncryptedContainer(unfinalizedFile(), 0x1A2B, "right"), 7, 8, 4));
  put("ec.MFE", makeEncryptedContainer(makeCompressedContainer(unfinalizedFile(), 7, 10, 5), 0x1A2B, "right"));
  ProgramRun r = run({"--verbosity=3", "c.MFC", "e.MFE", "d.MFE", "ce.MFE", "ec.MFE"});
  EXPECT_EQ(r.status, 0) << r.err;
  for (const char* name : {"c_fin.MF4", "e_fin.MF4", "d_fin.MF4", "ce_fin.MF4", "ec_fin.MF4"}) {
    EXPECT_EQ(output(name), plain_output) << name;
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

  passwords("  \"1A2B\": \"one\",\n  \"1A2B\": \"two\"\n");
  ProgramRun duplicate = run({"--verbosity=2", "a.MF4"});
  EXPECT_EQ(duplicate.status, 0);
  EXPECT_NE(duplicate.err.find(" W Failed to insert key for \"1A2B\" in password storage\n"), std::string::npos)
      << duplicate.err;

  // An absolute path to the password file works from anywhere.
  put("e.MFE", makeEncryptedContainer(unfinalizedFile(), 0x1A2B, "one"));
  fs::create_directories(path("elsewhere"));
  ProgramRun absolute = runProgram(QM_BINARY, {"-p", path("passwords.json"), path("e.MFE")}, path("elsewhere"));
  EXPECT_EQ(absolute.status, 0) << absolute.err;
  EXPECT_TRUE(exists("e_fin.MF4"));
}

TEST_F(Conversion, ContainerNestingIsBounded) {
  std::string deep = unfinalizedFile();
  for (int i = 0; i < 32; ++i) deep = makeCompressedContainer(deep, 1, 8, 4);
  put("deep32.MFC", deep);
  put("deep33.MFC", makeCompressedContainer(deep, 1, 8, 4));
  ProgramRun r = run({"deep32.MFC", "deep33.MFC"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(exists("deep32_fin.MF4"));
  EXPECT_FALSE(exists("deep33_fin.MF4"));
  EXPECT_NE(r.err.find(" E Error during conversion of deep33.MFC\n"), std::string::npos) << r.err;
}

TEST_F(Conversion, UnknownContainerTypeFailsWithoutItsOwnMessage) {
  std::string container = makeCompressedContainer(unfinalizedFile(), 1, 8, 4);
  container[14] = 99;
  put("odd.MF4", container);
  ProgramRun r = run({"odd.MF4"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(" E Error during conversion of odd.MF4\n"), std::string::npos);
  EXPECT_EQ(r.err.find("Found"), std::string::npos);
}

}  // namespace
}  // namespace qm::test
