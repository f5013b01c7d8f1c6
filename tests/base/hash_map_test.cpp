#include "base/hash_map.h"

#include <gtest/gtest.h>

#include <memory>

namespace qm {
namespace {

// Expected values worked out by hand from the hash definition, one per tail form.
TEST(HashText, KnownKeysHashToTheirSlots) {
  EXPECT_EQ(hashText("default"), 0x9fcbfc37f3ca21d8ULL);    // byte-wise tail with the final mix
  EXPECT_EQ(hashText("1A2B"), 0x8c848abefa28940eULL);       // 4-byte tail
  EXPECT_EQ(hashText("ABCDEF12"), 0xd151ff105a9918f9ULL);   // one whole word, no tail
  EXPECT_EQ(hashText("12345678ABCD"), 0x4c6a83bfbc4260c3ULL);
  EXPECT_EQ(hashText(""), 1u);
  EXPECT_EQ(slotOfHash(hashText("default"), 5), 4u);
  EXPECT_EQ(slotOfHash(hashText("default"), 11), 10u);
  EXPECT_EQ(slotOfHash(hashText("ABCDEF12"), 5), 1u);
  EXPECT_EQ(slotOfHash(hashText("12345678ABCD"), 11), 8u);
  EXPECT_EQ(slotOfHash(hashText("1E240"), 5), 0u);
  EXPECT_EQ(controlOfHash(hashText("1A2B")), 0x8e);
}

TEST(HashInteger, MatchesTheOffsetHash) {
  EXPECT_EQ(hashInteger(0), 1u);
  EXPECT_EQ(hashInteger(1), 0x1413ef39cfd1e99eULL);
  EXPECT_EQ(slotOfHash(hashInteger(64), 11), 10u);
  EXPECT_EQ(slotOfHash(hashInteger(1000), 5), 3u);
}

TEST(HashMap, StoresKeysInTheirComputedSlots) {
  HashMap<SmallString, SmallString> map;
  ASSERT_TRUE(map.insert("default", "pw"));
  ASSERT_EQ(map.capacity(), 5u);
  EXPECT_EQ(map.controlAt(4), 0xd8);
  EXPECT_EQ(map.slotAt(4).key, "default");
  // "1A2B" also wants slot 4: it probes on and wraps to slot 0.
  ASSERT_TRUE(map.insert("1A2B", "x"));
  EXPECT_EQ(map.slotAt(0).key, "1A2B");
  EXPECT_EQ(map.controlAt(5), 255);  // sentinel
  EXPECT_EQ(*map.find("1A2B"), "x");
  EXPECT_EQ(map.find("1a2b"), nullptr);
}

TEST(HashMap, GrowsLazilyOneInsertionLate) {
  HashMap<std::uint64_t, int> map;
  EXPECT_EQ(map.capacity(), 0u);
  EXPECT_EQ(map.find(7), nullptr);  // an empty map finds nothing
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(map.insert(100 + i, i));
  // With 3 entries the request for 4 slots is ignored: still the first table of 5.
  EXPECT_EQ(map.capacity(), 5u);
  ASSERT_TRUE(map.insert(200, 9));
  EXPECT_EQ(map.capacity(), 11u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(*map.find(100 + i), i);
  EXPECT_EQ(*map.find(200), 9);
}

TEST(HashMap, InsertKeepsTheFirstValue) {
  HashMap<SmallString, SmallString> map;
  EXPECT_TRUE(map.insert("abc", "first"));
  EXPECT_FALSE(map.insert("abc", "second"));
  EXPECT_EQ(*map.find("abc"), "first");
  EXPECT_EQ(map.size(), 1u);
}

TEST(HashMap, BackwardShiftDeletionKeepsProbeChainsReachable) {
  HashMap<std::uint64_t, std::unique_ptr<int>> map;
  for (std::uint64_t k = 0; k < 200; ++k) ASSERT_TRUE(map.insert(k, std::make_unique<int>(static_cast<int>(k))));
  for (std::uint64_t k = 0; k < 200; k += 3) {
    std::unique_ptr<int> value;
    ASSERT_TRUE(map.take(k, &value));
    EXPECT_EQ(*value, static_cast<int>(k));
  }
  EXPECT_FALSE(map.erase(0));
  for (std::uint64_t k = 0; k < 200; ++k) {
    if (k % 3 == 0) {
      EXPECT_EQ(map.find(k), nullptr) << k;
    } else {
      ASSERT_NE(map.find(k), nullptr) << k;
      EXPECT_EQ(**map.find(k), static_cast<int>(k));
    }
  }
  EXPECT_EQ(map.size(), 200u - 67u);
}

TEST(HashMap, ClearKeepsCapacity) {
  HashMap<std::uint64_t, int> map;
  for (int i = 0; i < 20; ++i) map.insert(i, i);
  std::uint32_t capacity = map.capacity();
  map.clear();
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(map.capacity(), capacity);
  EXPECT_EQ(map.find(3), nullptr);
  EXPECT_TRUE(map.insert(3, 4));
}

}  // namespace
}  // namespace qm
