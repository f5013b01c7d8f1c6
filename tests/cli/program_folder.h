#pragma once
// What the command-line tests share: the built program run in a fresh folder of the test's own,
// and what they look for in the files and messages it leaves there.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "tests/support/text_shape.h"
#include "tools/mdfgen/byte_source.h"
#include "tools/mdfgen/mdf_verifier.h"

namespace qm::test {

class ProgramFolder : public ::testing::Test {
 protected:
  // The program run in `folder`, a path below the test's folder (empty: that folder itself).
  ProgramRun run(const std::vector<std::string>& args, const std::string& folder = "", ChildLimits limits = {}) {
    return runProgram(QM_BINARY, args, path(folder), limits);
  }
  std::string path(const std::string& relative) const { return relative.empty() ? dir_.path().string() : dir_ / relative; }
  bool exists(const std::string& relative) const { return std::filesystem::exists(path(relative)); }
  void put(const std::string& relative, const std::string& bytes) const { writeFile(path(relative), bytes); }
  std::string read(const std::string& relative) const { return readFile(path(relative)); }

  TempDir dir_;
};

// Every file below `root` with its bytes, by path relative to it (none when `root` is missing).
inline std::map<std::string, std::string> filesBelow(const std::filesystem::path& root) {
  std::map<std::string, std::string> files;
  if (!std::filesystem::exists(root)) return files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (entry.is_regular_file()) files[std::filesystem::relative(entry.path(), root).string()] = readFile(entry.path().string());
  }
  return files;
}

inline std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// Where the error line with exactly this message is in `err` (npos when there is none), so that
// tests can check the order of messages.
inline std::size_t errorAt(const std::string& err, const std::string& message) { return err.find(" E " + message + "\n"); }
inline bool hasError(const std::string& err, const std::string& message) { return errorAt(err, message) != std::string::npos; }

// The log lines of `err` without their time stamps and ids; the level letters stay.
inline std::string withoutLogPrefixes(const std::string& err) {
  return replacedAll(err, R"((^|\n)\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ )", "$1");
}

// Whether the checker takes the file for a sound MDF4 file; every problem it finds fails the test.
inline bool verifiesMdf(const std::string& path) {
  std::unique_ptr<FileSource> source = FileSource::open(path);
  if (!source) return false;
  VerifyReport report = verifyMdfFile(*source);
  for (const std::string& problem : report.problems) ADD_FAILURE() << path << ": " << problem;
  return report.ok();
}

}  // namespace qm::test
