#pragma once
// A fresh temporary folder per test, removed with everything in it afterwards.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace qm::test {

// The tests spell paths in UTF-8, as the program does; Windows' narrow paths would read them in
// the local code page instead.
inline std::filesystem::path pathOf(const std::string& utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}
inline std::string textOf(const std::filesystem::path& path) {
  std::u8string utf8 = path.u8string();
  return std::string(utf8.begin(), utf8.end());
}

class TempDir {
 public:
  TempDir() : TempDir(std::filesystem::temp_directory_path()) {}
  // Under another folder, for instance memory-backed /dev/shm where flushing to disk costs nothing.
  // A name no other test holds: create_directory fails when the folder exists already.
  explicit TempDir(const std::filesystem::path& parent) {
    std::random_device random;
    for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
      std::filesystem::path candidate = parent / ("qm-test-" + std::to_string(random()));
      std::error_code error;
      if (std::filesystem::create_directory(candidate, error)) path_ = candidate;
    }
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return textOf(path_ / pathOf(name)); }

 private:
  std::filesystem::path path_;
};

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(pathOf(path).parent_path());
  std::ofstream out(pathOf(path), std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(pathOf(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace qm::test
