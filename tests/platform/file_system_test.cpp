#include "platform/file_system.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/system_error.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

TEST(PlatformFileSystem, ListingIsSortedByteWiseWithTypesAndLeavesOutDanglingLinksPosix) {
  TempDir dir;
  for (const char* name : {"b.mf4", "B.MF4", "\xC3\xA9.mf4", "_x"}) test::writeFile(dir / name, "12");
  fs::create_directories(dir / "sub");
  fs::create_directory_symlink(dir / "sub", dir / "link");
  fs::create_symlink(dir / "nowhere", dir / "dangling");
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);

  std::vector<FolderEntry> entries;
  ASSERT_TRUE(listFolder(dir.path().c_str(), &entries));
  std::string listed;  // each name with the first letter of its type: other, file, directory
  for (const FolderEntry& entry : entries) {
    listed += entry.name + ":" + "OFDM"[static_cast<int>(entry.facts.type)] + " ";
  }
  EXPECT_EQ(listed, "B.MF4:F _x:F b.mf4:F link:D pipe:O sub:D \xC3\xA9.mf4:F ");
  EXPECT_EQ(entries[0].facts.size, 2);
}

TEST(PlatformFileSystem, QueryGivesTimesInNanosecondsAndTellsAReplacedFile) {
  TempDir dir;
  const std::string path = dir / "a.bin";
  test::writeFile(path, "first");
  const auto when = std::chrono::sys_days{std::chrono::year{2024} / 5 / 17} + std::chrono::nanoseconds{123456789};
  fs::last_write_time(path, std::chrono::file_clock::from_sys(when));
  PathFacts before;
  ASSERT_TRUE(queryPath(path.c_str(), &before));
  EXPECT_EQ(before.modified_ns, std::chrono::nanoseconds(when.time_since_epoch()).count());
  EXPECT_GE(before.changed_ns, before.modified_ns);

  test::writeFile(dir / "b.bin", "other");
  ASSERT_TRUE(renameReplacing((dir / "b.bin").c_str(), path.c_str()));
  PathFacts after;
  ASSERT_TRUE(queryPath(path.c_str(), &after));
  EXPECT_NE(after.identity, before.identity);
  EXPECT_EQ(test::readFile(path), "other");

  ASSERT_TRUE(queryPath((dir / "gone").c_str(), &after));
  EXPECT_EQ(after.type, PathType::kMissing);
}

// Each change either happens or fails with the reason, here the POSIX error number.
TEST(PlatformFileSystem, ChangesSucceedOrSayWhyPosix) {
  TempDir dir;
  test::writeFile(dir / "file", "x");
  fs::create_directories(dir / "full/inside");
  const std::string file = dir / "file";
  const std::string full = dir / "full";
  const std::string missing = dir / "missing";
  PathFacts facts;
  struct Case {
    const char* what;
    std::function<bool()> change;
    int error;  // 0: succeeds
  } cases[] = {
      {"make a folder that exists", [&] { return makeFolder(full.c_str()); }, systemErrorExists()},
      {"remove a folder as a file", [&] { return removeFile(full.c_str()); }, systemErrorIsADirectory()},
      {"rename a missing file", [&] { return renameReplacing(missing.c_str(), file.c_str()); }, ENOENT},
      {"rename over a folder", [&] { return renameReplacing(file.c_str(), full.c_str()); }, EISDIR},
      {"query a path through a file", [&] { return queryPath((file + "/x").c_str(), &facts); }, ENOTDIR},
      {"flush a folder", [&] { return flushFolderToDisk(full.c_str()); }, 0},
      {"flush a missing folder", [&] { return flushFolderToDisk(missing.c_str()); }, ENOENT},
  };
  for (const Case& c : cases) {
    setLastSystemError(0);
    EXPECT_EQ(c.change(), c.error == 0) << c.what;
    if (c.error != 0) {
      EXPECT_EQ(lastSystemError(), c.error) << c.what << ": " << systemErrorText(lastSystemError());
    }
  }
}

}  // namespace
}  // namespace qm
