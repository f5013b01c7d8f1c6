#include "platform/file_system.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

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

// Each entry's name with the first letter of its type: other, file, directory.
std::string listing(const std::vector<FolderEntry>& entries) {
  std::string listed;
  for (const FolderEntry& entry : entries) listed += entry.name + ":" + "OFDM"[static_cast<int>(entry.facts.type)] + " ";
  return listed;
}

bool writeWhole(const std::string& path, const std::string& bytes) {
  std::optional<File> file = File::open(path.c_str(), FileAccess::kWrite);
  return file && file->write(bytes.data(), bytes.size()) == bytes.size() && file->close();
}

#ifndef _WIN32
TEST(PlatformFileSystem, ListingIsSortedByteWiseWithTypesAndLeavesOutDanglingLinksPosix) {
  TempDir dir;
  for (const char* name : {"b.mf4", "B.MF4", "\xC3\xA9.mf4", "_x"}) test::writeFile(dir / name, "12");
  fs::create_directories(dir / "sub");
  fs::create_directory_symlink(dir / "sub", dir / "link");
  fs::create_symlink(dir / "nowhere", dir / "dangling");
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);

  std::vector<FolderEntry> entries;
  ASSERT_TRUE(listFolder(dir.path().c_str(), &entries));
  EXPECT_EQ(listing(entries), "B.MF4:F _x:F b.mf4:F link:D pipe:O sub:D \xC3\xA9.mf4:F ");
  EXPECT_EQ(entries[0].facts.size, 2);
}
#endif

// Names are UTF-8 inside the program whatever the system keeps; they come back from a listing
// as they went in, in byte-wise order, not the system's.
TEST(PlatformFileSystem, NamesBeyondAsciiRoundTripThroughAListing) {
  TempDir dir;
  const std::string root = dir.path().string();
  // No two differ in case alone, which Windows would take for one name.
  const char* const files[] = {"c.mf4", "B.MF4", "_x", "Gr\xC3\xB6\xC3\x9F" "e.mf4", "\xE6\x97\xA5\xE6\x9C\xAC.MF4",
                               "e\xCC\x81.mf4"};
  for (const char* name : files) ASSERT_TRUE(writeWhole(root + "/" + name, name)) << name;
  ASSERT_TRUE(makeFolder((root + "/\xC3\x84rger").c_str()));

  std::vector<FolderEntry> entries;
  ASSERT_TRUE(listFolder(root.c_str(), &entries));
  EXPECT_EQ(listing(entries),
            "B.MF4:F Gr\xC3\xB6\xC3\x9F" "e.mf4:F _x:F c.mf4:F e\xCC\x81.mf4:F \xC3\x84rger:D \xE6\x97\xA5\xE6\x9C\xAC.MF4:F ");
  for (const FolderEntry& entry : entries) {
    if (entry.facts.type != PathType::kFile) continue;
    EXPECT_EQ(entry.facts.size, static_cast<std::int64_t>(entry.name.size())) << entry.name;
    PathFacts facts;
    ASSERT_TRUE(queryPath((root + "/" + entry.name).c_str(), &facts)) << entry.name;
    EXPECT_EQ(facts.type, PathType::kFile) << entry.name;
    EXPECT_TRUE(removeFile((root + "/" + entry.name).c_str())) << entry.name;
  }
  entries.clear();
  ASSERT_TRUE(listFolder(root.c_str(), &entries));
  EXPECT_EQ(listing(entries), "\xC3\x84rger:D ");
}

// Windows limits paths to 260 characters unless they are given in its long form.
TEST(PlatformFileSystem, PathsLongerThan260CharactersWork) {
  TempDir dir;
  std::string folder = dir.path().string();
  const std::string level(60, 'd');
  for (int depth = 0; depth < 5; ++depth) {
    folder += "/" + level + std::to_string(depth);
    ASSERT_TRUE(makeFolder(folder.c_str())) << folder.size() << ": " << systemErrorText(lastSystemError());
  }
  ASSERT_GT(folder.size(), 300u);
  const std::string written = folder + "/a.MF4.partial";
  const std::string file = folder + "/a.MF4";
  ASSERT_TRUE(writeWhole(written, "long"));
  ASSERT_TRUE(renameReplacing(written.c_str(), file.c_str()));
  PathFacts facts;
  ASSERT_TRUE(queryPath(file.c_str(), &facts));
  EXPECT_EQ(facts.type, PathType::kFile);
  EXPECT_EQ(facts.size, 4);
  std::vector<FolderEntry> entries;
  ASSERT_TRUE(listFolder(folder.c_str(), &entries));
  EXPECT_EQ(listing(entries), "a.MF4:F ");
  std::optional<std::string> resolved = resolvePath(file.c_str());
  ASSERT_TRUE(resolved);
  const std::string tail = level + "4/a.MF4";
  ASSERT_GT(resolved->size(), tail.size());
  EXPECT_EQ(resolved->substr(resolved->size() - tail.size()), tail);
  EXPECT_TRUE(removeFile(file.c_str()));
  ASSERT_TRUE(queryPath(file.c_str(), &facts));
  EXPECT_EQ(facts.type, PathType::kMissing);
}

TEST(PlatformFileSystem, QueryGivesTimesInNanosecondsAndTellsAReplacedFile) {
  TempDir dir;
  const std::string path = dir / "a.bin";
  test::writeFile(path, "first");
#ifdef _WIN32
  constexpr std::chrono::nanoseconds kFraction{0};  // the runtime library sets whole seconds here
#else
  constexpr std::chrono::nanoseconds kFraction{123456789};
#endif
  const auto when = std::chrono::sys_days{std::chrono::year{2024} / 5 / 17} + kFraction;
  fs::last_write_time(path, std::chrono::file_clock::from_sys(when));
  PathFacts before;
  ASSERT_TRUE(queryPath(path.c_str(), &before));
  EXPECT_EQ(before.modified_ns, std::chrono::nanoseconds(when.time_since_epoch()).count());
  EXPECT_GE(before.changed_ns, before.modified_ns);
  PathFacts again;
  ASSERT_TRUE(queryPath(path.c_str(), &again));
  EXPECT_EQ(again.identity, before.identity);
  std::optional<File> open = File::open(path.c_str(), FileAccess::kRead);
  ASSERT_TRUE(open);
  ASSERT_TRUE(open->facts(&again));
  EXPECT_EQ(again.identity, before.identity) << "the open file and its path agree";
  open->close();

  test::writeFile(dir / "b.bin", "other");
  ASSERT_TRUE(renameReplacing((dir / "b.bin").c_str(), path.c_str()));
  PathFacts after;
  ASSERT_TRUE(queryPath(path.c_str(), &after));
  EXPECT_NE(after.identity, before.identity);
  EXPECT_EQ(test::readFile(path), "other");

  ASSERT_TRUE(queryPath((dir / "gone").c_str(), &after));
  EXPECT_EQ(after.type, PathType::kMissing);
  ASSERT_TRUE(queryPath((dir / "gone/deeper").c_str(), &after));
  EXPECT_EQ(after.type, PathType::kMissing);
  ASSERT_TRUE(queryPath("", &after));
  EXPECT_EQ(after.type, PathType::kMissing);
}

TEST(PlatformFileSystem, ResolvedPathsHaveNoDotsAndMissingOnesNone) {
  TempDir dir;
  const std::string root = dir.path().string();
  ASSERT_TRUE(makeFolder((root + "/sub").c_str()));
  test::writeFile(dir / "sub/f", "x");
  std::optional<std::string> plain = resolvePath((root + "/sub/f").c_str());
  std::optional<std::string> dotted = resolvePath((root + "/sub/.././sub/f").c_str());
  ASSERT_TRUE(plain && dotted);
  EXPECT_EQ(*dotted, *plain);
  EXPECT_EQ(plain->find('\\'), std::string::npos) << *plain;
  EXPECT_FALSE(resolvePath((root + "/sub/missing").c_str()));

  const fs::path previous = fs::current_path();
  fs::current_path(dir.path() / "sub");
  std::optional<std::string> current = currentFolder();
  std::optional<std::string> here = resolvePath(".");
  fs::current_path(previous);
  ASSERT_TRUE(current && here);
  EXPECT_EQ(current->find('\\'), std::string::npos) << *current;
  EXPECT_EQ(resolvePath(current->c_str()), here);
  EXPECT_EQ(*plain, *here + "/f");
}

#ifdef _WIN32
// Either separator, a drive letter in either case, the long form "\\?\", a root without its
// drive and a relative path all name the same file; a bare drive names its root, not the
// drive's current folder.
TEST(PlatformFileSystem, WindowsPathFormsNameTheSameFile) {
  TempDir dir;
  const std::string native = (dir.path() / "f.MF4").string();
  test::writeFile(native, "x");
  ASSERT_EQ(native.substr(1, 2), ":\\") << native;
  std::string slashed = native;
  for (char& c : slashed) c = c == '\\' ? '/' : c;
  std::string lower = native;
  lower[0] = static_cast<char>(lower[0] | 0x20);
  const std::string drive = native.substr(0, 2);

  const fs::path previous = fs::current_path();
  fs::current_path(dir.path());
  PathFacts expected;
  ASSERT_TRUE(queryPath(native.c_str(), &expected));
  ASSERT_EQ(expected.type, PathType::kFile);
  for (const std::string& form : {slashed, lower, "\\\\?\\" + native, "//?/" + slashed, slashed.substr(2),
                                  native.substr(2), std::string("f.MF4"), drive + "f.MF4"}) {
    PathFacts facts;
    EXPECT_TRUE(queryPath(form.c_str(), &facts) && facts.identity == expected.identity) << form;
  }
  std::vector<FolderEntry> bare;
  std::vector<FolderEntry> root;
  const bool listed = listFolder(drive.c_str(), &bare) && listFolder((drive + "/").c_str(), &root);
  fs::current_path(previous);
  ASSERT_TRUE(listed);
  EXPECT_EQ(listing(bare), listing(root));
  const std::string first = slashed.substr(3, slashed.find('/', 3) - 3);  // "users" of C:/users/...
  EXPECT_NE(listing(bare).find(first + ":D"), std::string::npos) << listing(bare);
}
#endif

// A folder where a file is expected fails with the reason a Linux system gives, everywhere.
TEST(PlatformFileSystem, ChangesSucceedOrSayWhy) {
  TempDir dir;
  test::writeFile(dir / "file", "x");
  fs::create_directories(dir / "full/inside");
  const std::string file = dir / "file";
  const std::string full = dir / "full";
  struct Case {
    const char* what;
    std::function<bool()> change;
    int error;  // 0: succeeds
  } cases[] = {
      {"make a folder that exists", [&] { return makeFolder(full.c_str()); }, systemErrorExists()},
      {"remove a folder as a file", [&] { return removeFile(full.c_str()); }, systemErrorIsADirectory()},
      {"rename over a folder", [&] { return renameReplacing(file.c_str(), full.c_str()); }, systemErrorIsADirectory()},
      {"write a folder as a file", [&] { return File::open(full.c_str(), FileAccess::kWrite).has_value(); },
       systemErrorIsADirectory()},
      {"flush a folder", [&] { return flushFolderToDisk(full.c_str()); }, 0},
  };
  for (const Case& c : cases) {
    setLastSystemError(0);
    EXPECT_EQ(c.change(), c.error == 0) << c.what;
    if (c.error != 0) {
      EXPECT_EQ(lastSystemError(), c.error) << c.what << ": " << systemErrorText(lastSystemError());
    }
  }
}

#ifndef _WIN32
// The POSIX error numbers of the changes that fail for other reasons.
TEST(PlatformFileSystem, ChangesSucceedOrSayWhyPosix) {
  TempDir dir;
  test::writeFile(dir / "file", "x");
  const std::string file = dir / "file";
  const std::string missing = dir / "missing";
  PathFacts facts;
  struct Case {
    const char* what;
    std::function<bool()> change;
    int error;
  } cases[] = {
      {"rename a missing file", [&] { return renameReplacing(missing.c_str(), file.c_str()); }, ENOENT},
      {"query a path through a file", [&] { return queryPath((file + "/x").c_str(), &facts); }, ENOTDIR},
      {"flush a missing folder", [&] { return flushFolderToDisk(missing.c_str()); }, ENOENT},
  };
  for (const Case& c : cases) {
    setLastSystemError(0);
    EXPECT_FALSE(c.change()) << c.what;
    EXPECT_EQ(lastSystemError(), c.error) << c.what << ": " << systemErrorText(lastSystemError());
  }
}
#else
// Windows says "no such folder on the way" both when a name on the way is missing and when it
// is a file; only the first is a missing path, the second fails as Linux's "not a directory".
TEST(PlatformFileSystem, WindowsPathThroughAFileFailsWhereAPathThroughNothingIsMissing) {
  TempDir dir;
  test::writeFile(dir / "file", "x");
  PathFacts facts;
  for (const std::string& through : {dir / "file/x", dir / "file/x/y"}) {
    setLastSystemError(0);
    EXPECT_FALSE(queryPath(through.c_str(), &facts)) << through;
    EXPECT_EQ(lastSystemError(), 267) << through;  // ERROR_DIRECTORY
  }
  for (const std::string& missing : {dir / "missing/x", dir / "missing/x/y"}) {
    ASSERT_TRUE(queryPath(missing.c_str(), &facts)) << missing;
    EXPECT_EQ(facts.type, PathType::kMissing) << missing;
  }
}
#endif

}  // namespace
}  // namespace qm
