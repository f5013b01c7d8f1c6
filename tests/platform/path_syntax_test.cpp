#include "platform/path_syntax.h"

#include <gtest/gtest.h>

namespace qm {
namespace {

#ifdef _WIN32
constexpr bool kWindows = true;
#else
constexpr bool kWindows = false;
#endif

TEST(PathSyntax, RootsAreMeasuredAsTheSystemSpellsThem) {
  struct Case {
    const char* path;
    std::size_t posix;
    std::size_t windows;
  } cases[] = {
      {"", 0, 0},
      {"logs/a.MF4", 0, 0},
      {"/", 1, 1},
      {"/home/u", 1, 1},
      {"\\logs", 0, 1},
      {"C:/logs", 0, 3},
      {"c:\\logs", 0, 3},
      {"C:", 0, 2},
      {"C:logs", 0, 2},  // drive-relative: the drive's own folder follows
      {"1:/logs", 0, 0},
      {"//server/share/logs", 1, 15},
      {"\\\\server\\share\\logs", 0, 15},
      {"\\\\server/share", 0, 14},
      {"//server", 1, 8},
      {"///logs", 1, 1},
      {"//?/C:/logs", 1, 7},  // the long-path form reads as a share named "C:" on server "?"
  };
  for (const Case& c : cases) {
    EXPECT_EQ(pathRootLength(c.path), kWindows ? c.windows : c.posix) << c.path;
  }
  EXPECT_TRUE(isPathSeparator('/'));
  EXPECT_EQ(isPathSeparator('\\'), kWindows);
  EXPECT_FALSE(isPathSeparator(':'));
}

}  // namespace
}  // namespace qm
