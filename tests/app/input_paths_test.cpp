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
