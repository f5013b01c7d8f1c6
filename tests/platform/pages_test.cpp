#include "platform/pages.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "platform/system_error.h"

namespace qm {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

bool aligned(const void* data, std::size_t alignment) {
  return reinterpret_cast<std::uintptr_t>(data) % alignment == 0;
}

void fill(void* data, std::size_t size) {
  auto* bytes = static_cast<std::uint8_t*>(data);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i % 251 + 1);
}

// Bytes in [0, filled) that lost their pattern, and bytes in [filled, size) that are not zero.
std::size_t wrongBytes(const void* data, std::size_t filled, std::size_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < filled; ++i) wrong += bytes[i] != static_cast<std::uint8_t>(i % 251 + 1);
  for (std::size_t i = filled; i < size; ++i) wrong += bytes[i] != 0;
  return wrong;
}

TEST(Pages, FreshPagesAreZeroedAndAlignedAsAsked) {
  const std::size_t page = pageSize();
  ASSERT_GT(page, 0u);
  ASSERT_EQ(page & (page - 1), 0u) << "a power of two";
  struct Case {
    std::size_t size;
    std::size_t alignment;
  };
  for (const Case c : {Case{page, page}, Case{2 * kMiB, 2 * kMiB}, Case{page, 2 * kMiB}, Case{6 * kMiB, 4 * kMiB}}) {
    SCOPED_TRACE(testing::Message() << c.size << " aligned to " << c.alignment);
    void* data = allocatePages(c.size, c.alignment);
    ASSERT_NE(data, nullptr);
    EXPECT_TRUE(aligned(data, c.alignment));
    EXPECT_EQ(wrongBytes(data, 0, c.size), 0u);
    fill(data, c.size);
    freePages(data, c.size);
  }
}

TEST(Pages, GrowthBeyondTheAddressSpaceFailsAndLeavesThePages) {
  const std::size_t size = 2 * kMiB;
  void* data = allocatePages(size, 2 * kMiB);
  ASSERT_NE(data, nullptr);
  fill(data, size);
  for (std::size_t too_large : {SIZE_MAX / 2 + 1, SIZE_MAX - 2 * kMiB + 1}) {
    setLastSystemError(0);
    EXPECT_EQ(growPages(data, size, too_large, 2 * kMiB), nullptr);
    EXPECT_NE(lastSystemError(), 0) << "the reason is left behind";
  }
  EXPECT_EQ(wrongBytes(data, size, size), 0u);
  freePages(data, size);
}

TEST(Pages, AHintOnPartOfABlockStillLetsItGrowByMovingPages) {
  // A hint that covered only part of a block's pages would split it, and a split block can no
  // longer be grown by moving its pages.
  const std::size_t size = 4 * kMiB;
  auto* data = static_cast<std::uint8_t*>(allocatePages(size, 2 * kMiB));
  ASSERT_NE(data, nullptr);
  fill(data, size);
  hintHugePages(data + 100, size - 200);
  void* grown = growPages(data, size, 8 * kMiB, 2 * kMiB);
  ASSERT_NE(grown, nullptr);
  EXPECT_EQ(wrongBytes(grown, size, 8 * kMiB), 0u);
  freePages(grown, 8 * kMiB);
}

// Buffers grow by doubling and more: in place while the address space behind allows, moved
// after that; either way the bytes stay and the new ones read as zeros.
TEST(Pages, RepeatedGrowthKeepsTheBytesAndAddsZeros) {
  std::size_t size = 2 * kMiB;
  void* data = allocatePages(size, 2 * kMiB);
  ASSERT_NE(data, nullptr);
  fill(data, size);
  for (std::size_t new_size : {4 * kMiB, 8 * kMiB, 10 * kMiB, 32 * kMiB}) {
    SCOPED_TRACE(testing::Message() << size << " to " << new_size);
    void* grown = growPages(data, size, new_size, 2 * kMiB);
    ASSERT_NE(grown, nullptr);
    EXPECT_TRUE(aligned(grown, 2 * kMiB));
    EXPECT_EQ(wrongBytes(grown, size, new_size), 0u);
    data = grown;
    size = new_size;
    fill(data, size);
  }
  freePages(data, size);
}

TEST(Pages, PopulatingNeverChangesAByte) {
  const std::size_t size = 4 * kMiB;
  void* data = allocatePages(size, 2 * kMiB);
  ASSERT_NE(data, nullptr);
  fill(data, size / 2 + 3);
  populatePagesForWriting(data, size);  // a hint: the system may not have it
  EXPECT_EQ(wrongBytes(data, size / 2 + 3, size), 0u);
  freePages(data, size);
}

}  // namespace
}  // namespace qm
