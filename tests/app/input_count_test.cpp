#include "app/input_count.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"

namespace qm {
namespace {

using test::TempDir;
using test::writeFile;

class InputCount : public ::testing::Test {
 protected:
  InputTotals count(const std::vector<SmallString>& inputs) {
    std::unique_ptr<DirectoryHandle> root = DirectoryHandle::create(dir_.path().string());
    std::unique_ptr<ConverterJob> job = ConverterJob::create(root.get(), root.get(), &options_);
    return countInputs(*job, inputs);
  }
  TempDir dir_;
  ConversionOptions options_;
};

TEST_F(InputCount, CountsTheFilesTheWalkConvertsWithTheirBytes) {
  writeFile(dir_ / "logs/a.MF4", std::string(100, 'a'));
  writeFile(dir_ / "logs/2023/b.mfe", std::string(20, 'b'));
  writeFile(dir_ / "logs/2023/deep/c.MFM", std::string(3, 'c'));
  writeFile(dir_ / "logs/notes.txt", std::string(1000, 'n'));
  writeFile(dir_ / "logs/d.mf", std::string(1000, 'd'));
  writeFile(dir_ / "x.mfc", std::string(7, 'x'));
  writeFile(dir_ / "readme", std::string(1000, 'r'));
  InputTotals totals = count({"logs", "x.mfc", "readme", "missing.MF4"});
  EXPECT_EQ(totals.files, 4);
  EXPECT_EQ(totals.bytes, 130u);
}

}  // namespace
}  // namespace qm
