#include "tools/mdfgen/block_plan.h"

#include <gtest/gtest.h>

#include "tools/mdfgen/tests/generated_file.h"

namespace qm {
namespace {

using test::fieldAt;

TEST(BlockPlan, PlacesBlocksAlignedAndResolvesLinks) {
  BlockPlan plan;
  int group = plan.add("##DG", 4, 64);
  int name = plan.addText("##TX", "hello");  // 24 + 6 bytes, padded to 32
  int data = plan.addPayload("##DT", 13);
  int values = plan.addPayload("##SD", 5);
  plan.link(group, 1, name);
  plan.link(group, 2, data);
  plan.setDeclaredLength(data, 24);
  EXPECT_EQ(plan.layout(64), 200 + 29u);
  EXPECT_EQ(plan.offsetOf(name), 128u);
  EXPECT_EQ(plan.offsetOf(data), 160u);
  EXPECT_EQ(plan.offsetOf(values), 200u);  // 197 rounded up to the next multiple of 8

  StringSink sink;
  sink.writeZeros(64);
  ASSERT_TRUE(plan.writeUpToPayload(sink));
  ASSERT_TRUE(plan.write(data, sink));
  const std::string& file = sink.bytes();
  ASSERT_EQ(file.size(), 160u + 24);  // the payload itself is the caller's
  EXPECT_EQ(file.substr(64, 4), "##DG");
  EXPECT_EQ(fieldAt(file, 64 + 16, 8), 4u);  // link count
  EXPECT_EQ(fieldAt(file, 64 + 24, 8), 0u);  // unset link
  EXPECT_EQ(fieldAt(file, 64 + 32, 8), 128u);
  EXPECT_EQ(fieldAt(file, 64 + 40, 8), 160u);
  EXPECT_EQ(file.substr(128 + 24, 6), std::string("hello\0", 6));
  EXPECT_EQ(fieldAt(file, 128 + 8, 8), 32u);
  EXPECT_EQ(fieldAt(file, 160 + 8, 8), 24u);  // the declared, not the real length
}

TEST(BlockPlan, RefusesToWriteBehindTheSink) {
  BlockPlan plan;
  int block = plan.add("##TX", 0, 24);
  plan.layout(64);
  StringSink sink;
  sink.writeZeros(65);
  EXPECT_FALSE(plan.write(block, sink));
}

}  // namespace
}  // namespace qm
