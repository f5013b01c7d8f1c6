#include "stream/directory_handle.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <string>
#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

using test::TempDir;

std::vector<std::string> namesOf(const std::vector<DirectoryEntry>& entries) {
  std::vector<std::string> names;
  for (const auto& e : entries) names.emplace_back(e.name.view());
  return names;
}

TEST(DirectoryHandle, OnlyAnExistingFolderMakesAHandle) {
  TempDir dir;
  test::writeFile(dir / "file.txt", "x");
  EXPECT_NE(DirectoryHandle::create(dir.path().string()), nullptr);
  EXPECT_EQ(DirectoryHandle::create(dir / "file.txt"), nullptr);
  EXPECT_EQ(DirectoryHandle::create(dir / "missing"), nullptr);
  EXPECT_EQ(DirectoryHandle::create(""), nullptr);
}

TEST(DirectoryHandle, JoinRules) {
  TempDir dir;
  auto root = DirectoryHandle::create(dir.path().string());
  ASSERT_NE(root, nullptr);
  std::string base = dir.path().string();
  EXPECT_EQ(root->join("a/b.mf4").view(), base + "/a/b.mf4");
  EXPECT_EQ(root->join("").view(), base);
  EXPECT_EQ(root->join("/etc/passwords.json").view(), "/etc/passwords.json");
  auto cwd = DirectoryHandle::create(".");
  ASSERT_NE(cwd, nullptr);
  EXPECT_EQ(cwd->join("x").view(), "./x");
}

TEST(DirectoryHandle, StatTellsTypesAndSizes) {
  TempDir dir;
  test::writeFile(dir / "sub/file.bin", "12345");
  auto root = DirectoryHandle::create(dir.path().string());
  DirectoryEntry entry;
  ASSERT_TRUE(root->stat("sub/file.bin", &entry));
  EXPECT_EQ(entry.type, kEntryFile);
  EXPECT_EQ(entry.size, 5);
  ASSERT_TRUE(root->stat("sub", &entry));
  EXPECT_EQ(entry.type, kEntryDirectory);
  EXPECT_EQ(entry.size, 0);
  ASSERT_TRUE(root->stat("nothing here", &entry));
  EXPECT_EQ(entry.type, kEntryMissing);
  // A path through a regular file fails with another error than "missing".
  EXPECT_FALSE(root->stat("sub/file.bin/below", &entry));
}

TEST(DirectoryHandle, ListSortsByteWiseAndKeepsOnlyFilesAndFolders) {
  TempDir dir;
  // A capital name sorts before "_" and every small letter, and Linux keeps "B.MF4" apart from
  // "b.mf4". Windows takes the two for one name: there the capital is another letter, which a
  // case-blind order would put after "b.mf4".
#ifdef _WIN32
  const char* capital = "C.MF4";
#else
  const char* capital = "B.MF4";
#endif
  for (const char* name : {"b.mf4", capital, "a", "\xC3\xA9.mf4", "_x"}) test::writeFile(dir / (std::string("in/") + name), "");
  std::filesystem::create_directories(dir / "in/sub");
#ifndef _WIN32
  ASSERT_EQ(mkfifo((dir / "in/pipe").c_str(), 0600), 0);  // neither file nor folder: left out
#endif
  auto root = DirectoryHandle::create(dir.path().string());

  test::LogCapture log(kLogInfo);
  std::vector<DirectoryEntry> entries(1);  // a name already listed is kept as it is
  entries[0].name = "a";
  ASSERT_TRUE(root->list("in", &entries));
  EXPECT_EQ(namesOf(entries),
            (std::vector<std::string>{capital, "_x", "a", "b.mf4", "sub", "\xC3\xA9.mf4"}));
  EXPECT_EQ(entries[2].type, kEntryOther);
  EXPECT_EQ(entries[3].type, kEntryFile);
  EXPECT_EQ(entries[4].type, kEntryDirectory);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"ls: in"});
  EXPECT_FALSE(root->list("missing", &entries));
  EXPECT_EQ(entries.size(), 6u);
}

TEST(DirectoryHandle, OpenFlagsChooseTheFileMode) {
  TempDir dir;
  auto root = DirectoryHandle::create(dir.path().string());
  ASSERT_TRUE(root->makeDirectory("out"));
  EXPECT_EQ(root->open("out/f.bin", 0), nullptr);
  auto writer = root->open("out/f.bin", kOpenWrite | 4);  // unknown bits are ignored
  ASSERT_NE(writer, nullptr);
  EXPECT_EQ(writer->read(nullptr, 0), kStreamMissingOp);
  EXPECT_EQ(writer->write("hello", 5), 5);
  writer.reset();
  EXPECT_EQ(root->open("out/f.bin", kOpenRead)->write("x", 1), kStreamMissingOp);
  EXPECT_TRUE(root->removeFile("out/f.bin"));
  EXPECT_FALSE(root->removeFile("out/f.bin"));
}

}  // namespace
}  // namespace qm
