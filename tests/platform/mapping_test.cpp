#include "platform/mapping.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>

#include "platform/file.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

// Windows reads files instead of mapping them.
#ifdef _WIN32
constexpr bool kMapsFiles = false;
#else
constexpr bool kMapsFiles = true;
#endif

struct MapCase {
  const char* what;
  std::size_t size;  // of the file written; ignored when `path` names something else
  std::uint64_t largest;
  bool mapped;
  const char* path = nullptr;  // instead of a fresh file
};

#ifdef _WIN32
constexpr const char* kDevice = "NUL";
#else
constexpr const char* kDevice = "/dev/null";
#endif

TEST(Mapping, OnlyRegularFilesWithinTheLargestSizeAreMapped) {
  const MapCase cases[] = {
      {"a file", 10000, 10000, true},
      {"a file of exactly one page", 4096, 1 << 20, true},
      {"an empty file", 0, 1 << 20, false},
      {"a file larger than allowed", 10001, 10000, false},
      {"a device", 0, 1 << 20, false, kDevice},
      {"a folder", 0, 1 << 20, false, "."},
  };
  for (const MapCase& c : cases) {
    SCOPED_TRACE(c.what);
    test::TempDir dir;
    std::string bytes(c.size, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 13 + 1);
    const std::string path = c.path != nullptr ? std::string(c.path) : dir / "in.MF4";
    if (c.path == nullptr) test::writeFile(path, bytes);
    std::optional<File> file = File::open(path.c_str(), FileAccess::kRead);
    if (!file) {  // Windows opens no folder as a file
      EXPECT_FALSE(c.mapped);
      continue;
    }
    const FileView view = mapWholeFile(file->nativeHandle(), c.largest);
    file->close();  // the view stays readable without the file's handle
    if (!view) {
      EXPECT_FALSE(c.mapped && kMapsFiles);
      continue;
    }
    EXPECT_TRUE(c.mapped);
    ASSERT_EQ(view.size, bytes.size());
    EXPECT_EQ(std::memcmp(view.data, bytes.data(), bytes.size()), 0);
    unmapFile(view);
  }
}

TEST(Mapping, NoFileMapsNothing) {
  EXPECT_FALSE(mapWholeFile(-1, 1 << 20));
  unmapFile(FileView{});  // nothing to hand back, and no harm done
}

}  // namespace
}  // namespace qm
