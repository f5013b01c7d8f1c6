#include "platform/mapping.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "tests/support/temp_dir.h"

namespace qm {
namespace {

struct MapCase {
  const char* what;
  std::size_t size;  // of the file written; ignored when `path` names something else
  std::uint64_t largest;
  bool mapped;
  const char* path = nullptr;  // instead of a fresh file
};

TEST(Mapping, OnlyRegularFilesWithinTheLargestSizeAreMapped) {
  const MapCase cases[] = {
      {"a file", 10000, 10000, true},
      {"a file of exactly one page", 4096, 1 << 20, true},
      {"an empty file", 0, 1 << 20, false},
      {"a file larger than allowed", 10001, 10000, false},
      {"a device", 0, 1 << 20, false, "/dev/null"},
      {"a folder", 0, 1 << 20, false, "."},
  };
  for (const MapCase& c : cases) {
    SCOPED_TRACE(c.what);
    test::TempDir dir;
    std::string bytes(c.size, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 13 + 1);
    const std::string path = c.path != nullptr ? std::string(c.path) : dir / "in.MF4";
    if (c.path == nullptr) test::writeFile(path, bytes);
    std::FILE* file = std::fopen(path.c_str(), "rb");
    ASSERT_NE(file, nullptr);
    const FileView view = mapWholeFile(nativeFileOf(file), c.largest);
    std::fclose(file);  // the view stays readable without the file's handle
    EXPECT_EQ(static_cast<bool>(view), c.mapped);
    if (!view) continue;
    ASSERT_EQ(view.size, bytes.size());
    EXPECT_EQ(std::memcmp(view.data, bytes.data(), bytes.size()), 0);
    unmapFile(view);
  }
}

TEST(Mapping, NoFileMapsNothing) {
  EXPECT_EQ(nativeFileOf(nullptr).value, NativeFile::kNone);
  EXPECT_FALSE(mapWholeFile(NativeFile{}, 1 << 20));
  unmapFile(FileView{});  // nothing to hand back, and no harm done
}

}  // namespace
}  // namespace qm
