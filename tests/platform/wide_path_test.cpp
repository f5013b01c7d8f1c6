// How paths reach the system's wide calls on Windows: Wine takes paths of any length, so only
// the form they are handed over in shows that a long one would pass on Windows.
#ifdef _WIN32
#include "platform/windows/wide_path.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/system_error.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

TEST(WidePath, PathsReachTheSystemAbsoluteAndInTheLongFormWindows) {
  struct Case {
    const char* path;
    const wchar_t* expected;
  } cases[] = {
      {"C:/logs/a.MF4", L"\\\\?\\C:\\logs\\a.MF4"},
      {"c:\\logs\\", L"\\\\?\\c:\\logs\\"},
      {"C:/logs/../x/./a.MF4", L"\\\\?\\C:\\x\\a.MF4"},
      {"//server/share/logs", L"\\\\?\\UNC\\server\\share\\logs"},
      {"\\\\server\\share", L"\\\\?\\UNC\\server\\share"},
      {"//?/C:/logs", L"\\\\?\\C:\\logs"},
      {"\\\\?\\UNC\\server\\share", L"\\\\?\\UNC\\server\\share"},
      {"NUL", L"\\\\.\\NUL"},
      {"C:/Gr\xC3\xB6\xC3\x9F" "e/\xE6\x97\xA5", L"\\\\?\\C:\\Gr\u00F6\u00DFe\\\u65E5"},
  };
  for (const Case& c : cases) {
    std::optional<std::wstring> wide = systemPath(c.path);
    ASSERT_TRUE(wide) << c.path;
    EXPECT_TRUE(*wide == c.expected) << c.path << " became " << utf8Text(*wide);
  }
  // A bare drive is its root even where the drive's current folder is another.
  test::TempDir dir;
  const std::filesystem::path previous = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  const std::string drive = dir.path().string().substr(0, 2);
  std::optional<std::wstring> bare = systemPath(drive.c_str());
  std::filesystem::current_path(previous);
  ASSERT_TRUE(bare);
  EXPECT_EQ(utf8Text(*bare), "\\\\?\\" + drive + "\\");

  setLastSystemError(0);
  EXPECT_FALSE(systemPath(""));
  EXPECT_EQ(lastSystemError(), 3) << "a path not found, as an empty path is elsewhere";
  EXPECT_FALSE(systemPath("C:/\xC3(")) << "no UTF-8";
}

}  // namespace
}  // namespace qm
#endif
