#include <gtest/gtest.h>

#include "app/input_list.h"
#include "app/input_walk.h"

namespace qm {
namespace {

// Every argument must lie directly in one directory, compared as written once normalised.
TEST(InputList, InputsInOneDirectoryShareItsRootOthersAreRefused) {
  const struct {
    std::vector<std::string_view> arguments;
    std::vector<std::string> inputs;  // none: refused
    std::string root;
  } cases[] = {
      {{"a.MF4", "sub", "/home/u/logs/b.mfe"}, {"a.MF4", "sub", "b.mfe"}, "/home/u/logs"},
      {{"logs/", "other\\"}, {"logs", "other"}, "/home/u/logs"},  // trailing separators, backslashes
      {{"d/a.MF4", "d/b"}, {"a.MF4", "b"}, "/home/u/logs/d"},
      {{"logs/", "other\\", "x//y"}, {}, ""},  // x/y lies one level deeper
      {{"d/a.MF4", "d/sub/b.MF4"}, {}, ""},
      {{"./a.MF4", "b.MF4"}, {}, ""},  // "./" is not removed, so these two do not share a parent
  };
  for (const auto& c : cases) {
    InputList list;
    ASSERT_EQ(computeInputList(c.arguments, "/home/u/logs", list), !c.inputs.empty()) << c.arguments[0];
    if (c.inputs.empty()) continue;
    EXPECT_EQ(list.common_root, c.root.c_str());
    EXPECT_EQ(std::vector<std::string>(list.inputs.begin(), list.inputs.end()), c.inputs);
  }
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
  for (const char* name : {"x.MF4", "dir.v2/x.mfe", "x.MfC", "x.mfm"}) EXPECT_TRUE(acceptFileName(name)) << name;
  for (const char* name : {"x.mf", "x.mf4x", "mf4", "notes.txt"}) EXPECT_FALSE(acceptFileName(name)) << name;
}

TEST(InputWalk, FolderOutputNamesGetTheSuffixBeforeTheirFirstSeparator) {
  EXPECT_EQ(outputNameForFolder("logs"), "logs_out");
  EXPECT_EQ(outputNameForFolder("logs/2023"), "logs_out/2023");
}

}  // namespace
}  // namespace qm
