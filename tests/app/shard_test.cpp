#include "app/shard.h"

#include <gtest/gtest.h>

namespace qm {
namespace {

TEST(Shard, OnlyKOverNWithKBelowNIsAShard) {
  for (const char* good : {"0/1", "3/4", "0/2", "12/13"}) EXPECT_TRUE(parseShard(good).has_value()) << good;
  for (const char* bad : {"4/4", "-1/2", "1/0", "abc", "1/2/3", "", "/", "1/", "/2", " 1/2", "1/2 ", "+1/2",
                          "1/9999999999"}) {
    EXPECT_FALSE(parseShard(bad).has_value()) << bad;
  }
  Shard shard = *parseShard("3/4");
  EXPECT_EQ(shard.index, 3u);
  EXPECT_EQ(shard.count, 4u);
}

// The split is part of how users run several machines over one tree: it must never change.
TEST(Shard, SplitIsFixedAndKeepsInputsOfOneOutputTogether) {
  EXPECT_EQ(shardOfPath("logs/2023/a.MF4", 4), 2u);
  EXPECT_EQ(shardOfPath("logs/2023/b.MF4", 4), 3u);
  EXPECT_EQ(shardOfPath("logs/2023/a.MF4", 1000), 414u);
  EXPECT_EQ(shardOfPath("logs/x.MF4", 7), shardOfPath("logs/x.MFC", 7));
  EXPECT_EQ(shardOfPath("logs.v2/x", 7), shardOfPath("logs.v2/x.mfe", 7));
  EXPECT_EQ(shardOfPath("anything", 1), 0u);
}

TEST(Shard, FilesSpreadOverAllShards) {
  int counts[4] = {};
  for (int i = 0; i < 400; ++i) ++counts[shardOfPath("logs/f" + std::to_string(i) + ".MF4", 4)];
  for (int count : counts) EXPECT_GT(count, 60);
  EXPECT_TRUE(inShard(Shard{}, "any/file.MF4"));
}

}  // namespace
}  // namespace qm
