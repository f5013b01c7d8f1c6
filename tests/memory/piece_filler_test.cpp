#include "memory/piece_filler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "base/spare_processors.h"

namespace qm {
namespace {

TEST(PieceFiller, FillsEveryPieceInOrderWhileTheCallerWorks) {
  for (std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{4096}, std::uint64_t{10007}}) {
    SCOPED_TRACE(size);
    std::vector<std::uint8_t> buffer(size);
    std::vector<std::uint64_t> offsets;  // only the filling side writes it until the end
    {
      PieceFiller filler(size, 1000, [&](std::uint64_t offset, std::size_t count) {
        offsets.push_back(offset);
        for (std::size_t i = 0; i < count; ++i) buffer[offset + i] = static_cast<std::uint8_t>(offset + i);
        return true;
      });
      for (std::uint64_t done = 0; done < size; done += 1000) {
        ASSERT_TRUE(filler.waitUntil(done + 1000));
        std::uint64_t end = std::min<std::uint64_t>(done + 1000, size);
        for (std::uint64_t i = done; i < end; ++i) ASSERT_EQ(buffer[i], static_cast<std::uint8_t>(i));
      }
      EXPECT_TRUE(filler.waitUntil(size));
    }
    ASSERT_EQ(offsets.size(), (size + 999) / 1000);
    for (std::size_t i = 0; i < offsets.size(); ++i) EXPECT_EQ(offsets[i], i * 1000);
  }
}

TEST(PieceFiller, FillsOnTheCallersThreadWhileEveryProcessorRunsAConversion) {
  std::vector<std::unique_ptr<RunningConversion>> busy;
  while (processorToSpare()) busy.push_back(std::make_unique<RunningConversion>());
  const std::thread::id caller = std::this_thread::get_id();
  std::vector<std::uint8_t> buffer(5000);
  bool elsewhere = false;
  PieceFiller filler(buffer.size(), 1000, [&](std::uint64_t offset, std::size_t count) {
    elsewhere |= std::this_thread::get_id() != caller;
    for (std::size_t i = 0; i < count; ++i) buffer[offset + i] = static_cast<std::uint8_t>(offset + i + 1);
    return true;
  });
  ASSERT_TRUE(filler.waitUntil(buffer.size()));
  EXPECT_FALSE(elsewhere);
  for (std::size_t i = 0; i < buffer.size(); ++i) ASSERT_EQ(buffer[i], static_cast<std::uint8_t>(i + 1));
}

TEST(PieceFiller, AWaitForMorePiecesThanItKeepsAheadIsServed) {
  std::vector<std::uint8_t> buffer(20000);
  PieceFiller filler(buffer.size(), 1000, [&](std::uint64_t offset, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) buffer[offset + i] = 7;
    return true;
  });
  ASSERT_TRUE(filler.waitUntil(buffer.size()));
  for (std::uint8_t byte : buffer) ASSERT_EQ(byte, 7);
}

TEST(PieceFiller, AFailedFillFailsEveryWaitBeyondIt) {
  PieceFiller filler(10000, 1000, [](std::uint64_t offset, std::size_t) { return offset < 3000; });
  EXPECT_TRUE(filler.waitUntil(3000));
  EXPECT_FALSE(filler.waitUntil(4000));
  EXPECT_FALSE(filler.waitUntil(10000));
}

TEST(PieceFiller, ACallerThatStopsEarlyIsNotKeptWaiting) {
  std::atomic<int> fills{0};
  {
    PieceFiller filler(std::uint64_t{1} << 30, 1000, [&](std::uint64_t, std::size_t) {
      ++fills;
      return true;
    });
    EXPECT_TRUE(filler.waitUntil(1000));
  }
  // The filler ran only a few pieces ahead of the caller, not through the whole gigabyte.
  EXPECT_LT(fills.load(), 16);
}

}  // namespace
}  // namespace qm
