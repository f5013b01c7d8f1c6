#include "tools/mdfgen/mdf_verifier.h"

#include <gtest/gtest.h>

#include "tools/mdfgen/mdf_tree.h"
#include "tools/mdfgen/tests/generated_file.h"

namespace qm {
namespace {

using test::fieldAt;
using test::setFieldAt;

constexpr std::uint64_t kHeaderLinks = 64 + 24;

MdfTree treeOf(const std::string& file) {
  MdfTree tree;
  ProblemList problems;
  readMdfTree(MemorySource(file), tree, problems);
  return tree;
}

// True when verification fails with a problem that contains `words`.
::testing::AssertionResult failsWith(const std::string& file, const std::string& words) {
  VerifyReport report = verifyMdfFile(MemorySource(file));
  for (const std::string& problem : report.problems) {
    if (problem.find(words) != std::string::npos) return ::testing::AssertionSuccess();
  }
  ::testing::AssertionResult result = ::testing::AssertionFailure() << "no problem mentions \"" << words << "\"";
  for (const std::string& problem : report.problems) result << "\n  " << problem;
  return result;
}

class MdfVerifier : public ::testing::Test {
 protected:
  std::string unsorted_ = test::generatedFile(40 * 1024, 8);
  std::string sorted_ = test::generatedFile(40 * 1024, 8, true);
};

TEST_F(MdfVerifier, BrokenBlockStructureIsReported) {
  std::string file = unsorted_;
  setFieldAt(file, kHeaderLinks, (file.size() + 800) / 8 * 8, 8);
  EXPECT_TRUE(failsWith(file, "outside the file"));

  file = unsorted_;
  std::uint64_t history = fieldAt(file, kHeaderLinks + 8, 8);
  setFieldAt(file, history + 24, history, 8);
  EXPECT_TRUE(failsWith(file, "loops back"));

  file = unsorted_;
  std::uint64_t comment = fieldAt(file, kHeaderLinks + 40, 8);
  setFieldAt(file, comment + 8, fieldAt(file, comment + 8, 8) + 16, 8);
  EXPECT_TRUE(failsWith(file, "overlap"));

  file = unsorted_;
  file.replace(0, 8, "MDF4    ");
  EXPECT_TRUE(failsWith(file, "not an MDF4 file"));
}

TEST_F(MdfVerifier, UnknownRecordIdIsReported) {
  std::string file = unsorted_;
  std::uint64_t data = treeOf(file).data_groups[0].data_offset;
  setFieldAt(file, data + 24, 9, 1);
  EXPECT_TRUE(failsWith(file, "unknown record id 9 at 0"));
}

TEST_F(MdfVerifier, RecordContentErrorsAreReported) {
  MdfTree tree = treeOf(sorted_);
  ASSERT_EQ(tree.data_groups.size(), 3u);  // CAN data, CAN remote, LIN in chain order
  std::uint64_t can_records = tree.data_groups[0].data_offset + 24;
  std::uint64_t lin_block = tree.data_groups[2].data_offset;

  std::string file = sorted_;
  setFieldAt(file, can_records + 15, 1, 8);  // the first frame's payload reference
  EXPECT_TRUE(failsWith(file, "refers to variable-length data at 1"));

  file = sorted_;
  setFieldAt(file, can_records + 14, fieldAt(file, can_records + 14, 1) + 1, 1);  // its DataLength
  EXPECT_TRUE(failsWith(file, "refers to variable-length data"));

  file = sorted_;
  setFieldAt(file, lin_block + 24, ~0ULL, 8);  // first LIN timestamp far in the future
  EXPECT_TRUE(failsWith(file, "group LIN_Frame: time goes back at record 2"));

  file = sorted_;
  std::uint64_t remote_group = tree.data_groups[1].groups[0].offset;
  setFieldAt(file, remote_group + 80, fieldAt(file, remote_group + 80, 8) + 1, 8);
  EXPECT_TRUE(failsWith(file, "cycle count"));

  file = sorted_;
  setFieldAt(file, lin_block + 8, fieldAt(file, lin_block + 8, 8) - 1, 8);
  EXPECT_TRUE(failsWith(file, "runs past its end"));
}

TEST_F(MdfVerifier, CycleCountsOfAnUnfinalizedFileAreNotHeldAgainstIt) {
  // The logger writes zeros there and says so with flag bit 0.
  VerifyReport report = verifyMdfFile(MemorySource(unsorted_));
  EXPECT_TRUE(report.ok());
  std::string file = unsorted_;
  setFieldAt(file, 60, 0x0024, 2);
  EXPECT_TRUE(failsWith(file, "cycle count 0"));
}

}  // namespace
}  // namespace qm
