#include "stream/slice_stream.h"

#include <gtest/gtest.h>

#include "tests/support/counting_stream.h"

namespace qm {
namespace {

const std::string kDigits = "0123456789abcdefghij";  // 20 bytes

TEST(SliceStream, UnboundedSliceRunsToTheInnerEnd) {
  auto slice = SliceStream::open(test::memoryStreamOf(kDigits), 5, 0);
  ASSERT_NE(slice, nullptr);
  EXPECT_EQ(slice->tell(), 0);
  EXPECT_EQ(test::readRest(slice.get()), kDigits.substr(5));
  EXPECT_EQ(slice->seek(-3, kSeekEnd), 12);
  EXPECT_EQ(test::readRest(slice.get()), "hij");
  EXPECT_EQ(slice->seek(-100, kSeekCur), 0);  // clamped to the start
  EXPECT_EQ(slice->seek(0, 5), kStreamRefused);
}

TEST(SliceStream, ReadBoundAddsTheStartToTheEnd) {
  // The end counts as a length from the start when reads are bounded, but as an absolute
  // offset when seeks are clamped.
  auto slice = SliceStream::open(test::memoryStreamOf(kDigits), 4, 10);
  ASSERT_NE(slice, nullptr);
  EXPECT_EQ(test::readRest(slice.get()), "456789abcd");  // up to 4 + 10
  EXPECT_EQ(slice->tell(), kStreamRefused);  // 10 > end - start
  EXPECT_EQ(slice->seek(100, kSeekSet), 6);  // clamped to the end offset 10
  EXPECT_EQ(slice->tell(), 6);
  EXPECT_EQ(slice->seek(-2, kSeekEnd), 4);  // end + offset
  char c;
  ASSERT_EQ(slice->read(&c, 1), 1);
  EXPECT_EQ(c, '8');
}

TEST(SliceStream, RefusesWhatItCannotReach) {
  EXPECT_EQ(SliceStream::open(nullptr, 0, 0), nullptr);
  EXPECT_EQ(SliceStream::open(test::memoryStreamOf(kDigits), -1, 0), nullptr);
  // The inner memory stream refuses a target beyond its capacity.
  auto slice = SliceStream::open(test::memoryStreamOf(kDigits), 2, 0);
  EXPECT_EQ(slice->seek(1000, kSeekSet), kStreamRefused);
  EXPECT_EQ(slice->seek(INT64_MAX, kSeekSet), kStreamRefused);
}

TEST(SliceStream, CloseClosesTheInnerStreamOnce) {
  test::StreamCalls calls;
  auto slice = SliceStream::open(test::countingStreamOf(kDigits, &calls), 0, 0);
  EXPECT_EQ(slice->close(), 0);
  EXPECT_EQ(calls.closes, 1);
  EXPECT_TRUE(calls.destroyed);
  char c;
  EXPECT_EQ(slice->read(&c, 1), kStreamRefused);
  EXPECT_EQ(slice->close(), 0);
}

}  // namespace
}  // namespace qm
