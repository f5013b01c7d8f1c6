#include "container/lzss_one_pass.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "container/decoder_stream.h"
#include "stream/memory_stream.h"
#include "tests/support/byte_stream.h"
#include "tests/support/lzss_encoder.h"

namespace qm {
namespace {

// What the incremental decoder makes of the bytes, pulled through its stream as a layer reading
// from a file does.
std::string decodeIncrementally(const std::string& bits, int window_bits, int lookahead_bits) {
  auto decoder = DecoderStream::create(std::make_unique<test::ByteStream>(bits), window_bits, lookahead_bits);
  if (!decoder) return "<refused>";
  MemoryStream out;
  copyAll(decoder.get(), &out);
  return std::string(reinterpret_cast<const char*>(out.data()), out.size());
}

std::string decodeOnePass(const std::string& bits, int window_bits, int lookahead_bits,
                          std::uint64_t size_hint = 0) {
  LzssOutput out;
  if (!decodeLzssWhole(reinterpret_cast<const std::uint8_t*>(bits.data()), bits.size(), window_bits,
                       lookahead_bits, size_hint, &out)) {
    return "<refused>";
  }
  EXPECT_LE(out.size, out.capacity);
  return std::string(reinterpret_cast<const char*>(out.bytes.get()), out.size);
}

std::vector<std::pair<int, int>> everyWidthPair() {
  std::vector<std::pair<int, int>> pairs;
  for (int window_bits = 4; window_bits <= 15; ++window_bits) {
    for (int lookahead_bits = 3; lookahead_bits < window_bits; ++lookahead_bits) {
      pairs.emplace_back(window_bits, lookahead_bits);
    }
  }
  return pairs;
}

// Random bytes; with zero_bias, most bits are 0, so that most items are back-references,
// many of them reaching before the first byte.
std::string noise(std::mt19937& rng, std::size_t size, bool zero_bias) {
  std::string out(size, '\0');
  for (char& c : out) c = static_cast<char>(zero_bias ? rng() & rng() & rng() : rng());
  return out;
}

void expectSameBytes(const std::string& bits, int window_bits, int lookahead_bits) {
  std::string expected = decodeIncrementally(bits, window_bits, lookahead_bits);
  std::string got = decodeOnePass(bits, window_bits, lookahead_bits);
  ASSERT_EQ(got.size(), expected.size());
  ASSERT_TRUE(got == expected);
}

TEST(LzssOnePass, RandomAndHostileBitstreamsDecodeAsTheIncrementalDecoderDoes) {
  std::mt19937 rng(2024);
  for (auto [window_bits, lookahead_bits] : everyWidthPair()) {
    for (std::size_t size : {0, 1, 2, 7, 8, 9, 15, 16, 17, 300, 2000, 30000}) {
      SCOPED_TRACE(testing::Message() << window_bits << "/" << lookahead_bits << " size " << size);
      expectSameBytes(noise(rng, size, false), window_bits, lookahead_bits);
      expectSameBytes(noise(rng, size, true), window_bits, lookahead_bits);
    }
    expectSameBytes(std::string(100, '\0'), window_bits, lookahead_bits);  // references to nothing
    expectSameBytes(std::string(100, '\xFF'), window_bits, lookahead_bits);
  }
}

TEST(LzssOnePass, EveryTruncationOfASmallContainerDecodesAlike) {
  for (auto [window_bits, lookahead_bits] : {std::pair{4, 3}, {8, 4}, {9, 8}, {11, 4}, {15, 14}}) {
    std::string bits = test::lzssEncode(test::loggerLikeBytes(1500, 7), window_bits, lookahead_bits);
    for (std::size_t cut = 0; cut <= bits.size(); ++cut) {
      SCOPED_TRACE(testing::Message() << window_bits << "/" << lookahead_bits << " cut " << cut);
      expectSameBytes(bits.substr(0, cut), window_bits, lookahead_bits);
    }
  }
}

TEST(LzssOnePass, TrailingPaddingAndGarbageDecodeAlike) {
  std::mt19937 rng(5);
  for (auto [window_bits, lookahead_bits] : everyWidthPair()) {
    SCOPED_TRACE(testing::Message() << window_bits << "/" << lookahead_bits);
    std::string bits = test::lzssEncode(test::loggerLikeBytes(3000, 3), window_bits, lookahead_bits);
    expectSameBytes(bits + std::string(5, '\0'), window_bits, lookahead_bits);
    expectSameBytes(bits + noise(rng, 11, false), window_bits, lookahead_bits);
  }
}

TEST(LzssOnePass, RoundTripsThroughTheEncoderForEveryWidthPair) {
  for (auto [window_bits, lookahead_bits] : everyWidthPair()) {
    SCOPED_TRACE(testing::Message() << window_bits << "/" << lookahead_bits);
    std::string payload = test::loggerLikeBytes(40000 + 7 * window_bits, window_bits);
    std::string bits = test::lzssEncode(payload, window_bits, lookahead_bits);
    EXPECT_TRUE(decodeOnePass(bits, window_bits, lookahead_bits) == payload);
    // A buffer far too small to start with grows as often as it must.
    EXPECT_TRUE(decodeOnePass(bits, window_bits, lookahead_bits, 1) == payload);
  }
}

// Large enough that fresh pages are faulted in ahead of the decoder on a second thread, also
// while the buffer grows (and moves) from a first guess far too small.
TEST(LzssOnePass, LargeOutputsDecodeAlikeWhileTheirPagesAreFaultedInAhead) {
  std::string payload = test::loggerLikeBytes(std::size_t{10} << 20, 5);
  std::string bits = test::lzssEncode(payload, 11, 4);
  EXPECT_TRUE(decodeOnePass(bits, 11, 4) == payload);
  EXPECT_TRUE(decodeOnePass(bits, 11, 4, std::size_t{4} << 20) == payload);
}

TEST(LzssOnePass, RefusesWhatTheIncrementalDecoderRefuses) {
  for (auto [window_bits, lookahead_bits] : {std::pair{3, 2}, {16, 4}, {8, 2}, {8, 8}, {0, 0}}) {
    EXPECT_EQ(decodeOnePass("abc", window_bits, lookahead_bits), "<refused>");
    EXPECT_EQ(decodeIncrementally("abc", window_bits, lookahead_bits), "<refused>");
  }
}

}  // namespace
}  // namespace qm
