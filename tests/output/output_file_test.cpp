#include "output/output_file.h"

#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#else
#include <sys/stat.h>
#endif

#include <filesystem>

#include "platform/system_error.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

namespace fs = std::filesystem;

struct SyncRecord {
  int files = 0;
  int folders = 0;
  bool fail_files = false;
  bool fail_folders = false;
};
SyncRecord g_sync;

bool isFolder(NativeHandle handle) {
#ifdef _WIN32
  BY_HANDLE_FILE_INFORMATION info{};
  return GetFileInformationByHandle(reinterpret_cast<HANDLE>(handle), &info) &&
         (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
#else
  struct stat info {};
  return fstat(static_cast<int>(handle), &info) == 0 && S_ISDIR(info.st_mode);
#endif
}

bool recordingSync(NativeHandle handle) {
  bool folder = isFolder(handle);
  (folder ? g_sync.folders : g_sync.files)++;
  if (folder ? g_sync.fail_folders : g_sync.fail_files) {
    setLastSystemError(systemErrorInputOutput());
    return false;
  }
  return true;
}

// The words of the system for the failure recordingSync makes up.
#ifdef _WIN32
const std::string kIoErrorText = systemErrorText(systemErrorInputOutput());
#else
const std::string kIoErrorText = "Input/output error";
#endif

class OutputFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_sync = {};
    root_ = DirectoryHandle::create(dir_.path().string());
    ASSERT_NE(root_, nullptr);
    fs::create_directories(dir_.path() / "out");
  }
  std::unique_ptr<OutputFile> create(bool durable) {
    return OutputFile::create(*root_, "out/x_fin.MF4", durable, recordingSync);
  }
  bool exists(const std::string& name) { return fs::exists(dir_ / name); }
  void write(OutputFile& output, const std::string& bytes) {
    ASSERT_EQ(output.stream()->write(bytes.data(), bytes.size()), static_cast<std::int64_t>(bytes.size()));
  }

  test::TempDir dir_;
  std::unique_ptr<DirectoryHandle> root_;
};

TEST_F(OutputFileTest, CarriesItsFinalNameOnlyOnceCommitted) {
  test::writeFile(dir_ / "out/x_fin.MF4.partial", "left by a crashed run, longer than the new content");
  auto output = create(false);
  ASSERT_NE(output, nullptr);
  write(*output, "complete");
  EXPECT_FALSE(exists("out/x_fin.MF4"));
  EXPECT_TRUE(output->commit());
  EXPECT_EQ(test::readFile(dir_ / "out/x_fin.MF4"), "complete");
  EXPECT_FALSE(exists("out/x_fin.MF4.partial"));
  EXPECT_EQ(g_sync.files + g_sync.folders, 0) << "nothing is flushed when no input will be removed";
}

TEST_F(OutputFileTest, AbandonedOrForgottenOutputsLeaveNothing) {
  test::writeFile(dir_ / "out/x_fin.MF4", "an earlier complete output");
  {
    auto output = create(false);
    write(*output, "half");
    output->abandon();
    EXPECT_FALSE(exists("out/x_fin.MF4.partial"));
  }
  { create(false); }
  EXPECT_FALSE(exists("out/x_fin.MF4.partial"));
  EXPECT_EQ(test::readFile(dir_ / "out/x_fin.MF4"), "an earlier complete output");
}

TEST_F(OutputFileTest, DurableOutputFlushesTheFileBeforeAndTheFolderAfterTheRename) {
  auto output = create(true);
  write(*output, "complete");
  EXPECT_TRUE(output->commit());
  EXPECT_EQ(g_sync.files, 1);
#ifdef _WIN32
  EXPECT_EQ(g_sync.folders, 0) << "Windows writes the rename through instead";
#else
  EXPECT_EQ(g_sync.folders, 1);
#endif
}

TEST_F(OutputFileTest, FailedFileFlushKeepsTheFinalNameFreeAndSaysWhy) {
  g_sync.fail_files = true;
  test::LogCapture log;
  auto output = create(true);
  write(*output, "complete");
  EXPECT_FALSE(output->commit());
  EXPECT_FALSE(exists("out/x_fin.MF4"));
  EXPECT_FALSE(exists("out/x_fin.MF4.partial"));
  EXPECT_TRUE(log.contains("Could not flush output file out/x_fin.MF4 to disk: " + kIoErrorText));
}

// Windows has no flush of a folder of its own: the rename is written through.
#ifndef _WIN32
TEST_F(OutputFileTest, FailedFolderFlushFailsTheCommitButKeepsTheCompleteOutputPosix) {
  g_sync.fail_folders = true;
  test::LogCapture log;
  auto output = create(true);
  write(*output, "complete");
  EXPECT_FALSE(output->commit());
  EXPECT_EQ(test::readFile(dir_ / "out/x_fin.MF4"), "complete");
  EXPECT_TRUE(log.contains("Could not flush folder of out/x_fin.MF4 to disk: " + kIoErrorText));
}
#endif

TEST_F(OutputFileTest, FailedRenameRemovesTheTemporaryFile) {
  fs::create_directories(dir_.path() / "out/x_fin.MF4/occupied");  // a non-empty folder cannot be replaced
  test::LogCapture log;
  auto output = create(false);
  write(*output, "complete");
  EXPECT_FALSE(output->commit());
  EXPECT_FALSE(exists("out/x_fin.MF4.partial"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].rfind("Could not rename out/x_fin.MF4.partial to out/x_fin.MF4: ", 0), 0u);
}

}  // namespace
}  // namespace qm
