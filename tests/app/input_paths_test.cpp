#include <gtest/gtest.h>

#include "app/input_list.h"
#include "app/input_walk.h"

namespace qm {
namespace {

InputList listOf(std::vector<std::string_view> arguments, bool* ok) {
  InputList list;
  *ok = computeInputList(arguments, "/home/u/logs", list);
  return list;
}

TEST(InputList, FilesAndFoldersInOneDirectoryShareItsRoot) {
  bool ok = false;
  InputList list = listOf({"a.MF4", "sub", "/home/u/logs/b.mfe"}, &ok);
  ASSERT_TRUE(ok);
  EXPECT_EQ(list.common_root, "/home/u/logs");
  ASSERT_EQ(list.inputs.size(), 3u);
  EXPECT_EQ(list.inputs[0], "a.MF4");
  EXPECT_EQ(list.inputs[1], "sub");
  EXPECT_EQ(list.inputs[2], "b.mfe");
}

TEST(InputList, TrailingSeparatorsAndBackslashesAreNormalised) {
  bool ok = false;
  InputList list = listOf({"logs/", "other\\", "x//y"}, &ok);
  EXPECT_FALSE(ok);  // x/y lies one level deeper
  list = listOf({"logs/", "other\\"}, &ok);
  ASSERT_TRUE(ok);
  EXPECT_EQ(list.inputs[0], "logs");
  EXPECT_EQ(list.inputs[1], "other");
}

TEST(InputList, DifferentParentsAreRejectedLiterally) {
  bool ok = true;
  listOf({"d/a.MF4", "d/sub/b.MF4"}, &ok);
  EXPECT_FALSE(ok);
  // "./" is not removed, so these two do not share a parent.
  listOf({"./a.MF4", "b.MF4"}, &ok);
  EXPECT_FALSE(ok);
  listOf({"d/a.MF4", "d/b"}, &ok);
  EXPECT_TRUE(ok);
}

TEST(InputList, NormalizeHandlesTheOddCases) {
  EXPECT_EQ(normalizeInputPath("..", "/w"), "");
  EXPECT_EQ(normalizeInputPath("/abs//x/", "/w"), "/abs/x");
  EXPECT_EQ(parentOf("/a"), "/a");
  EXPECT_EQ(parentOf("/a/b"), "/a");
}

#ifdef _WIN32
constexpr bool kWindows = true;
#else
constexpr bool kWindows = false;
#endif

// Drive letters, rooted paths and network shares are absolute on Windows; on Linux they are
// names like any other.
TEST(InputList, WindowsRootsAreAbsoluteAndSurviveNormalisation) {
  struct Case {
    const char* argument;
    const char* working_directory;
    const char* posix;
    const char* windows;
  } cases[] = {
      {"C:\\logs\\", "/w", "/w/C:/logs", "C:/logs"},
      {"C:/logs//2023", "/w", "/w/C:/logs/2023", "C:/logs/2023"},
      {"C:", "/w", "/w/C:", "C:"},
      {"\\logs", "C:/w", "C:/w/logs", "/logs"},
      {"\\\\server\\share\\logs", "/w", "/w//server/share/logs", "//server/share/logs"},  // "///" collapses once
      {"//server/share//logs/", "/w", "/server/share/logs", "//server/share/logs"},
      {"logs", "//server/share", "/server/share/logs", "//server/share/logs"},
      {"logs", "C:/", "C:/logs", "C:/logs"},
      {"/abs//x/", "C:/w", "/abs/x", "/abs/x"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(normalizeInputPath(c.argument, c.working_directory), kWindows ? c.windows : c.posix) << c.argument;
  }
  struct Parent {
    const char* path;
    const char* posix;
    const char* windows;
  } parents[] = {
      {"C:/logs", "C:", "C:"},
      {"//server/share/logs", "//server/share", "//server/share"},
      {"//server/share", "//server", "//server/share"},
  };
  for (const Parent& p : parents) EXPECT_EQ(parentOf(p.path), kWindows ? p.windows : p.posix) << p.path;
}

TEST(InputList, InputsInADriveRootOrAShareShareThatRoot) {
  if (!kWindows) GTEST_SKIP() << "Windows paths";
  InputList list;
  ASSERT_TRUE(computeInputList({"C:\\a.MF4", "C:/logs"}, "D:/w", list));
  EXPECT_EQ(list.common_root, "C:");  // the drive's root, as a bare drive is taken
  EXPECT_EQ(list.inputs[0], "a.MF4");
  EXPECT_EQ(list.inputs[1], "logs");
  InputList shared;
  ASSERT_TRUE(computeInputList({"\\\\server\\share\\logs\\x.mf4", "y.mfe"}, "//server/share/logs", shared));
  EXPECT_EQ(shared.common_root, "//server/share/logs");
  EXPECT_FALSE(computeInputList({"C:/a.MF4", "D:/b.MF4"}, "C:/", list));
}

TEST(InputWalk, AcceptsOnlyTheLoggerExtensions) {
  EXPECT_TRUE(acceptFileName("x.MF4"));
  EXPECT_TRUE(acceptFileName("dir.v2/x.mfe"));
  EXPECT_TRUE(acceptFileName("x.MfC"));
  EXPECT_TRUE(acceptFileName("x.mfm"));
  EXPECT_FALSE(acceptFileName("x.mf"));
  EXPECT_FALSE(acceptFileName("x.mf4x"));
  EXPECT_FALSE(acceptFileName("mf4"));
  EXPECT_FALSE(acceptFileName("notes.txt"));
}

TEST(InputWalk, FolderOutputNamesGetTheSuffixBeforeTheirFirstSeparator) {
  EXPECT_EQ(outputNameForFolder("logs"), "logs_out");
  EXPECT_EQ(outputNameForFolder("logs/2023"), "logs_out/2023");
}

}  // namespace
}  // namespace qm
