#include "memory/mapped_blocks.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <thread>
#include <vector>

#include "memory/large_buffer.h"
#include "platform/pages.h"

namespace qm {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

bool isMapped(const void* data, std::size_t size) {
  std::vector<unsigned char> pages(size / pageSize() + 1);
  return mincore(const_cast<void*>(data), size, pages.data()) == 0;
}

bool onHugePageBoundary(const void* data) { return reinterpret_cast<std::uintptr_t>(data) % kHugePage == 0; }

constexpr std::size_t kKeepAll = 64 * kMiB;

// Blocks of these sizes, all taken first and then given back in the same order.
std::vector<MappedBlock> takeThenGiveBack(MappedBlockCache& cache, std::initializer_list<std::size_t> sizes) {
  std::vector<MappedBlock> blocks;
  for (std::size_t size : sizes) blocks.push_back(cache.take(size));
  for (const MappedBlock& block : blocks) {
    EXPECT_NE(block.data, nullptr);
    cache.giveBack(block);
  }
  return blocks;
}

TEST(MappedBlocks, AFreedBlockServesTheNextFittingRequestOfAnyThread) {
  MappedBlockCache cache(kKeepAll, kKeepAll);
  MappedBlock first = cache.take(14 * kMiB);
  ASSERT_NE(first.data, nullptr);
  EXPECT_TRUE(onHugePageBoundary(first.data));
  std::memset(first.data, 0x5a, first.size);
  cache.giveBack(first);
  EXPECT_TRUE(isMapped(first.data, first.size));

  MappedBlock again;
  std::thread([&] { again = cache.take(12 * kMiB); }).join();
  EXPECT_EQ(again.data, first.data);
  EXPECT_EQ(again.size, first.size);  // handed out whole, larger than asked
  cache.giveBack(again);
}

TEST(MappedBlocks, TheClosestKeptBlockIsTaken) {
  MappedBlockCache cache(kKeepAll, kKeepAll);
  const std::vector<MappedBlock> kept = takeThenGiveBack(cache, {4 * kMiB, 8 * kMiB, 16 * kMiB});
  MappedBlock fitting = cache.take(6 * kMiB);
  EXPECT_EQ(fitting.data, kept[1].data);  // the smallest that fits
  MappedBlock grown = cache.take(20 * kMiB);
  EXPECT_EQ(grown.size, 20 * kMiB);  // none fits: the largest grows, keeping its pages
  MappedBlock last = cache.take(2 * kMiB);
  EXPECT_EQ(last.data, kept[0].data);
  for (MappedBlock block : {fitting, grown, last}) cache.giveBack(block);
}

TEST(MappedBlocks, GrowingKeepsTheContentsAlsoWhenTheBlockMustMove) {
  MappedBlockCache cache(kKeepAll, kKeepAll);
  MappedBlock block = cache.take(4 * kMiB);
  ASSERT_NE(block.data, nullptr);
  auto* bytes = static_cast<std::uint8_t*>(block.data);
  for (std::size_t i = 0; i < block.size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7);
  // Something right behind the block leaves no room to grow in place.
  void* behind = mmap(bytes + block.size, kHugePage, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  ASSERT_NE(behind, MAP_FAILED);
  const std::size_t old_size = block.size;
  ASSERT_TRUE(growMappedBlock(block, 10 * kMiB));
  EXPECT_NE(block.data, static_cast<void*>(bytes));
  EXPECT_TRUE(onHugePageBoundary(block.data));
  EXPECT_EQ(block.size, 10 * kMiB);
  const auto* moved = static_cast<const std::uint8_t*>(block.data);
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < old_size; ++i) wrong += moved[i] != static_cast<std::uint8_t>(i * 7);
  EXPECT_EQ(wrong, 0u);
  munmap(behind, kHugePage);
  cache.giveBack(block);
}

TEST(MappedBlocks, BlocksBeyondTheLimitsGoBackToTheSystem) {
  MappedBlockCache cache(8 * kMiB, 12 * kMiB);
  // The first is too large to keep; the third would take the kept bytes beyond 12 MiB.
  const std::vector<MappedBlock> given = takeThenGiveBack(cache, {10 * kMiB, 8 * kMiB, 6 * kMiB});
  EXPECT_FALSE(isMapped(given[0].data, given[0].size));
  EXPECT_TRUE(isMapped(given[1].data, given[1].size));
  EXPECT_FALSE(isMapped(given[2].data, given[2].size));
}

TEST(MappedBlocks, TrimmingUnmapsTheLargestKeptBlocksFirst) {
  MappedBlockCache cache(kKeepAll, kKeepAll);
  const std::vector<MappedBlock> kept = takeThenGiveBack(cache, {2 * kMiB, 8 * kMiB, 4 * kMiB});
  EXPECT_EQ(cache.keptBytes(), 14 * kMiB);
  cache.trimTo(7 * kMiB);
  EXPECT_EQ(cache.keptBytes(), 6 * kMiB);
  EXPECT_FALSE(isMapped(kept[1].data, kept[1].size));
  EXPECT_TRUE(isMapped(kept[0].data, kept[0].size));
  EXPECT_TRUE(isMapped(kept[2].data, kept[2].size));
  cache.trimTo(0);
  EXPECT_EQ(cache.keptBytes(), 0u);
  EXPECT_FALSE(isMapped(kept[0].data, kept[0].size));
  EXPECT_EQ(cache.take(4 * kMiB).size, 4 * kMiB);  // fresh, nothing left to hand out
}

TEST(MappedBlocks, ThreadsNeverShareABlock) {
  // Each thread fills the blocks it holds with its own mark and checks it before giving them
  // back: a block handed out twice would show the other thread's mark.
  constexpr int kThreads = 4;
  constexpr int kRounds = 40;
  MappedBlockCache cache(kKeepAll, kKeepAll);
  std::vector<int> damaged(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &damaged, &cache] {
      for (int round = 0; round < kRounds; ++round) {
        MappedBlock block = cache.take(static_cast<std::size_t>(1 + (round + t) % 3) * kHugePage);
        if (block.data == nullptr) continue;
        auto* bytes = static_cast<std::uint8_t*>(block.data);
        const std::size_t stride = pageSize();
        for (std::size_t i = 0; i < block.size; i += stride) bytes[i] = static_cast<std::uint8_t>(t + 1);
        std::this_thread::yield();
        for (std::size_t i = 0; i < block.size; i += stride) damaged[t] += bytes[i] != t + 1;
        cache.giveBack(block);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(damaged[t], 0) << "thread " << t;
}

TEST(LargeBuffer, GrowingKeepsTheContentsFromMallocAndFromMappedBlocks) {
  for (std::size_t first : {std::size_t{4096}, 3 * kMiB}) {
    LargeBuffer buffer = allocateUninitialized(first);
    ASSERT_TRUE(buffer);
    for (std::size_t i = 0; i < first; ++i) buffer[i] = static_cast<std::uint8_t>(i % 251);
    ASSERT_TRUE(growLargeBuffer(buffer, 9 * kMiB));
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < first; ++i) wrong += buffer[i] != static_cast<std::uint8_t>(i % 251);
    EXPECT_EQ(wrong, 0u) << first;
    buffer[9 * kMiB - 1] = 1;  // the whole new room is there
  }
}

}  // namespace
}  // namespace qm
