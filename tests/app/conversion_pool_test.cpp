#include "app/conversion_pool.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "memory/large_buffer.h"
#include "platform/pages.h"

namespace qm {
namespace {

// Tracks what runs at the same time.
struct Tracker {
  std::mutex mutex;
  std::uint64_t memory = 0;
  std::uint64_t peak_memory = 0;
  int running = 0;
  int peak_running = 0;
  std::vector<int> started;

  void begin(int id, std::uint64_t bytes) {
    std::lock_guard<std::mutex> lock(mutex);
    started.push_back(id);
    memory += bytes;
    peak_memory = std::max(peak_memory, memory);
    peak_running = std::max(peak_running, ++running);
  }
  void end(std::uint64_t bytes) {
    std::lock_guard<std::mutex> lock(mutex);
    memory -= bytes;
    --running;
  }
};

void submitTracked(ConversionPool& pool, Tracker& tracker, int id, std::uint64_t bytes) {
  pool.submit(bytes, [&tracker, id, bytes] {
    tracker.begin(id, bytes);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    tracker.end(bytes);
  });
}

TEST(ConversionPool, StartsInOrderWithinTheWorkersAndTheMemoryBudget) {
  Tracker tracker;
  {
    ConversionPool pool(3, 100);
    for (int i = 0; i < 12; ++i) submitTracked(pool, tracker, i, i % 2 ? 40 : 30);
    pool.waitForAll();
    EXPECT_EQ(tracker.running, 0);
  }
  EXPECT_EQ(tracker.started.size(), 12u);
  EXPECT_LE(tracker.peak_memory, 100u);
  EXPECT_LE(tracker.peak_running, 3);
  EXPECT_GE(tracker.peak_running, 2) << "files that fit together run together";
}

TEST(ConversionPool, OneWorkerRunsTasksInTheOrderHandedIn) {
  Tracker tracker;
  {
    ConversionPool pool(1, 100);
    for (int i = 0; i < 6; ++i) submitTracked(pool, tracker, i, 10);
  }
  EXPECT_EQ(tracker.started, (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST(ConversionPool, TheNextFileWaitsReadySoAFreedWorkerNeedNotWaitForTheWalk) {
  std::atomic<bool> release{false};
  std::atomic<bool> second_ran{false};
  auto wait_until = [](const std::atomic<bool>& flag) {
    for (int i = 0; i < 2000 && !flag; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return flag.load();
  };
  ConversionPool pool(1, 100);
  pool.submit(10, [&] { wait_until(release); });
  std::atomic<bool> handed_in{false};
  std::thread walk([&] {
    pool.submit(10, [&] { second_ran = true; });
    handed_in = true;
  });
  EXPECT_TRUE(wait_until(handed_in)) << "the second file is taken while the first still runs";
  release = true;
  EXPECT_TRUE(wait_until(second_ran));
  walk.join();
}

TEST(ConversionPool, WorkersStartOnlyWhenAFileFindsNoneIdle) {
  ConversionPool pool(100000, 100);
  for (int i = 0; i < 20; ++i) {
    pool.submit(1, [] {});
    pool.waitForAll();
  }
  EXPECT_EQ(pool.workerCount(), 1) << "files one after another need one worker";

  std::atomic<bool> release{false};
  for (int i = 0; i < 3; ++i) {
    pool.submit(1, [&] {
      while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
  }
  EXPECT_EQ(pool.workerCount(), 3) << "three files at once need three";
  release = true;
}

TEST(WorkersForJobs, StayWithinWhatTheOpenFileLimitLeaves) {
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
  if (saved.rlim_max != RLIM_INFINITY && saved.rlim_max < 164) GTEST_SKIP() << "the hard limit is below the test's";
  rlimit lowered = saved;
  lowered.rlim_cur = 164;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &lowered), 0);
  const int few = workersForJobs(3);
  const int many = workersForJobs(100000);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
  EXPECT_EQ(few, 3);
  EXPECT_EQ(many, 50) << "two files for each worker beside the run's own";
}

TEST(ConversionPool, AFileLargerThanTheBudgetRunsAlone) {
  Tracker tracker;
  {
    ConversionPool pool(4, 100);
    submitTracked(pool, tracker, 0, 10);
    submitTracked(pool, tracker, 1, 500);
    submitTracked(pool, tracker, 2, 10);
    submitTracked(pool, tracker, 3, 10);
  }
  EXPECT_EQ(tracker.started.size(), 4u);
  EXPECT_EQ(tracker.peak_memory, 500u) << "nothing ran beside the large file";
}

TEST(ConversionPool, KeptBuffersLeaveRoomForTheConversionsAdmitted) {
  constexpr std::uint64_t kMiB = 1 << 20;
  MappedBlockCache kept(64 * kMiB, 64 * kMiB);
  std::vector<MappedBlock> blocks;
  for (int i = 0; i < 3; ++i) blocks.push_back(kept.take(2 * kMiB));
  for (const MappedBlock& block : blocks) kept.giveBack(block);
  ASSERT_EQ(kept.keptBytes(), 6 * kMiB);

  std::atomic<bool> release{false};
  auto hold = [&] {
    while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  };
  {
    ConversionPool pool(2, 8 * kMiB, kept);
    pool.submit(4 * kMiB, hold);
    EXPECT_LE(kept.keptBytes(), 4 * kMiB) << "kept and admitted stay within the budget";
    pool.submit(3 * kMiB, hold);
    EXPECT_EQ(kept.keptBytes(), 0u);
    release = true;
  }
}

[[maybe_unused]] bool pageResident(std::uintptr_t address) {
  unsigned char resident = 0;
  return mincore(reinterpret_cast<void*>(address), 1, &resident) == 0 && (resident & 1) != 0;
}

TEST(KeepWithinBudget, FreedHeapPagesGoBackOnlyWhenTheBudgetIsTight) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's allocator keeps freed memory its own way";
#else
  // The heap as the program sets it up: buffers up to 64 MiB come from it and stay when freed.
  keepFreedBuffers();
  constexpr std::size_t kSize = std::size_t{16} << 20;
  auto* buffer = static_cast<std::uint8_t*>(std::malloc(kSize));
  ASSERT_NE(buffer, nullptr);
  void* behind = std::malloc(64);  // the freed buffer is not the heap's top, which goes back anyway
  std::memset(buffer, 1, kSize);
  const std::uintptr_t page = pageSize();
  const std::uintptr_t inside = (reinterpret_cast<std::uintptr_t>(buffer) + kSize / 2) & ~(page - 1);
  std::free(buffer);
  ASSERT_TRUE(pageResident(inside));

  MappedBlockCache kept(std::size_t{64} << 20, std::size_t{64} << 20);
  keepWithinBudget(kept, std::uint64_t{1} << 20, std::uint64_t{1} << 40);
  EXPECT_TRUE(pageResident(inside)) << "room enough: the freed pages serve the next file";
  keepWithinBudget(kept, std::uint64_t{8} << 20, std::uint64_t{8} << 20);
  EXPECT_FALSE(pageResident(inside)) << "no room: the freed pages went back to the system";
  std::free(behind);
#endif
}

}  // namespace
}  // namespace qm
