#include "base/small_string.h"

#include <gtest/gtest.h>

#include <cstring>

namespace qm {
namespace {

TEST(SmallString, TwentyTwoCharactersStayInlineTwentyThreeGoToTheHeapWithExactCapacity) {
  SmallString s(std::string_view("abcdefghijklmnopqrstuv"));
  EXPECT_TRUE(s.isInline());
  EXPECT_EQ(s.size(), 22u);
  EXPECT_EQ(s.capacity(), 22u);
  EXPECT_EQ(s.c_str()[22], '\0');
  SmallString heap(std::string_view("abcdefghijklmnopqrstuvw"));
  EXPECT_FALSE(heap.isInline());
  EXPECT_EQ(heap.capacity(), 23u);
  EXPECT_EQ(heap.view(), "abcdefghijklmnopqrstuvw");
}

TEST(SmallString, AppendingPastInlineReservesWithGrowth) {
  SmallString s(std::string_view("abcdefghijklmnopqrstuv"));
  s.append("w", 1);
  EXPECT_FALSE(s.isInline());
  EXPECT_EQ(s.capacity(), 34u);  // 1 + 22 * 3 / 2
  EXPECT_EQ(s.view(), "abcdefghijklmnopqrstuvw");
  EXPECT_EQ(s.c_str()[23], '\0');
}

TEST(SmallString, AppendingItselfDoublesTheText) {
  SmallString shortText("abc");
  shortText.append(shortText.view());
  EXPECT_EQ(shortText.view(), "abcabc");
  SmallString longText(std::string(20, 'x') + "yz");
  longText.append(longText.view());  // moves to the heap while reading from itself
  EXPECT_EQ(longText.view(), std::string(20, 'x') + "yz" + std::string(20, 'x') + "yz");
}

TEST(SmallString, ZeroFilledRecordIsEmpty) {
  alignas(SmallString) unsigned char raw[sizeof(SmallString)];
  std::memset(raw, 0, sizeof raw);
  const auto* s = reinterpret_cast<const SmallString*>(raw);
  EXPECT_EQ(s->size(), 0u);
  EXPECT_STREQ(s->c_str(), "");
}

TEST(SmallString, CopyMoveAndKeepEmbeddedZeros) {
  SmallString a(std::string_view("abc\0\0\0\0\0", 8));
  SmallString b = a;
  EXPECT_EQ(b.size(), 8u);
  SmallString c = std::move(b);
  EXPECT_EQ(c, a);
  EXPECT_TRUE(b.empty());
  SmallString big(std::string(100, 'q'));
  big = a;
  EXPECT_EQ(big, a);
}

TEST(SmallString, ReserveNeverShrinksAndFormatWorks) {
  SmallString s("x");
  s.reserve(100);
  EXPECT_EQ(s.capacity(), 100u);
  s.reserve(10);
  EXPECT_EQ(s.capacity(), 100u);
  EXPECT_EQ(s.view(), "x");
  EXPECT_EQ(SmallString::format("%X", 0x1A2Bu), "1A2B");
  EXPECT_EQ(SmallString::format("%s%.*s", "a/", 3, "bcdef"), "a/bcd");
  char* tail = s.extend(3);
  EXPECT_EQ(tail, s.data() + 1);
  EXPECT_EQ(s.size(), 4u);
}

}  // namespace
}  // namespace qm
