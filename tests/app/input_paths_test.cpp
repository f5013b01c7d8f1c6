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
