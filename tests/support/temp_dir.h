#pragma once
// A fresh temporary folder per test, removed with everything in it afterwards.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace qm::test {

class TempDir {
 public:
  TempDir() : TempDir(std::filesystem::temp_directory_path()) {}
  // Under another folder, for instance memory-backed /dev/shm where flushing to disk costs nothing.
  explicit TempDir(const std::filesystem::path& parent) {
#ifdef _WIN32
    // No mkdtemp here: a random name, again until one is free.
    std::random_device random;
    for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
      std::filesystem::path candidate = parent / ("qm-test-" + std::to_string(random()));
      std::error_code error;
      if (std::filesystem::create_directory(candidate, error)) path_ = candidate;
    }
#else
    std::string pattern = (parent / "qm-test-XXXXXX").string();
    path_ = mkdtemp(pattern.data()) ? std::filesystem::path(pattern) : std::filesystem::path();
#endif
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace qm::test
