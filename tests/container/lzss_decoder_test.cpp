#include "container/lzss_decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "container/decoder_stream.h"
#include "tests/support/counting_stream.h"
#include "tests/support/lzss_encoder.h"

namespace qm {
namespace {

using test::BitWriter;

// Feeds the input in pieces of 1..max_sink bytes and drains into outputs of 1..max_poll bytes.
std::string decodeInPortions(const std::string& encoded, int window_bits, int lookahead_bits,
                             std::size_t buffer_size = 64, std::size_t max_sink = 64,
                             std::size_t max_poll = 256, Decoder::State* final_state = nullptr) {
  auto decoder = Decoder::create(buffer_size, window_bits, lookahead_bits);
  const auto* input = reinterpret_cast<const std::uint8_t*>(encoded.data());
  std::string out;
  std::vector<std::uint8_t> chunk(max_poll);
  std::size_t offset = 0;
  for (std::size_t turn = 0;; ++turn) {
    std::size_t consumed = 0;
    std::size_t piece = std::min(1 + turn * 7 % max_sink, encoded.size() - offset);
    if (piece) decoder->sink(input + offset, piece, &consumed);
    offset += consumed;
    std::size_t produced = 0;
    int result = decoder->poll(chunk.data(), 1 + turn * 5 % max_poll, &produced);
    out.append(reinterpret_cast<char*>(chunk.data()), produced);
    if (result == kPollNeedsInput && offset == encoded.size()) break;
    if (result < 0 || turn > 100 * encoded.size() + 1000) return "<stuck>";
  }
  if (final_state) *final_state = decoder->state();
  return decoder->finish() == kFinishDone ? out : "<not finished>";
}

void putLiteral(BitWriter& bits, char c) {
  bits.put(1, 1);
  bits.put(static_cast<unsigned char>(c), 8);
}

void putReference(BitWriter& bits, unsigned index, int window_bits, unsigned count, int lookahead_bits) {
  bits.put(0, 1);
  bits.put(index, window_bits);
  bits.put(count, lookahead_bits);
}

TEST(Decoder, RefusesInvalidParameters) {
  EXPECT_EQ(Decoder::create(64, 3, 2), nullptr);   // window of 8 bytes
  EXPECT_EQ(Decoder::create(64, 16, 4), nullptr);
  EXPECT_EQ(Decoder::create(64, 8, 2), nullptr);   // lookahead below 3
  EXPECT_EQ(Decoder::create(64, 8, 8), nullptr);   // lookahead not below the window
  EXPECT_EQ(Decoder::create(0, 8, 4), nullptr);
  EXPECT_NE(Decoder::create(1, 4, 3), nullptr);
  EXPECT_NE(Decoder::create(1024, 15, 14), nullptr);
}

TEST(Decoder, HandMadeStreams) {
  BitWriter b256;  // window 256: the index is one low part only
  putLiteral(b256, 'A');
  putLiteral(b256, 'B');
  putReference(b256, 1, 8, 2, 4);  // distance 2, length 3, overlapping what it writes
  EXPECT_EQ(decodeInPortions(b256.finish(), 8, 4), "ABABA");

  BitWriter b512;  // window 512: a one-bit high part carries distances above 256
  std::string expected;
  for (int i = 0; i < 300; ++i) expected += static_cast<char>('a' + i % 26 + (i / 26) % 3);
  for (char c : expected) putLiteral(b512, c);
  putReference(b512, 299, 9, 4, 4);  // distance 300: back to the very first byte
  EXPECT_EQ(decodeInPortions(b512.finish(), 9, 4), expected + expected.substr(0, 5));

  BitWriter b2048;  // lookahead 4, window 2048: index 0, count 0 copy one byte from one back
  putLiteral(b2048, 'Q');
  putReference(b2048, 0, 11, 0, 4);
  EXPECT_EQ(decodeInPortions(b2048.finish(), 11, 4), "QQ");

  BitWriter zeros;  // the window starts zeroed: a reference before the first byte yields zeros
  putReference(zeros, 9, 11, 2, 4);
  putLiteral(zeros, 'z');
  EXPECT_EQ(decodeInPortions(zeros.finish(), 11, 4), std::string("\0\0\0z", 4));

  BitWriter long_count;  // lookahead above 8 bits: the count has a high part too
  putLiteral(long_count, 'r');
  putReference(long_count, 0, 13, 299, 10);
  EXPECT_EQ(decodeInPortions(long_count.finish(), 13, 10), std::string(301, 'r'));
}

TEST(Decoder, TrailingZeroPaddingEndsCleanly) {
  BitWriter bits;
  putLiteral(bits, 'x');
  putLiteral(bits, 'y');
  // 6 + 8 zero bits: a tag and an index, but less than a whole 16-bit item
  Decoder::State state{};
  EXPECT_EQ(decodeInPortions(bits.finish() + std::string(1, '\0'), 11, 4, 64, 64, 256, &state), "xy");
  EXPECT_EQ(state, Decoder::kCountLow);
}

TEST(Decoder, FinishAndSinkReportPendingWork) {
  BitWriter bits;
  putLiteral(bits, 'k');
  putReference(bits, 0, 8, 9, 4);  // ten more 'k'
  std::string stream = bits.finish();
  auto decoder = Decoder::create(2, 8, 4);
  std::size_t consumed = 0;
  EXPECT_EQ(decoder->sink(reinterpret_cast<const std::uint8_t*>(stream.data()), 3, &consumed), kSinkTaken);
  EXPECT_EQ(consumed, 2u);
  EXPECT_EQ(decoder->sink(reinterpret_cast<const std::uint8_t*>(stream.data()), 1, &consumed), kSinkFull);
  EXPECT_EQ(consumed, 0u);
  EXPECT_EQ(decoder->finish(), kFinishMore);  // input still buffered
  std::uint8_t out[4];
  std::size_t produced = 0;
  EXPECT_EQ(decoder->poll(out, sizeof out, &produced), kPollNeedsInput);  // the count is missing
  EXPECT_EQ(decoder->finish(), kFinishDone);
  decoder->sink(reinterpret_cast<const std::uint8_t*>(stream.data()) + 2, 1, &consumed);
  EXPECT_EQ(decoder->poll(out, sizeof out, &produced), kPollOutputFull);
  EXPECT_EQ(decoder->state(), Decoder::kYieldBackReference);
  EXPECT_EQ(decoder->finish(), kFinishMore);  // a back-reference is half emitted
}

TEST(Decoder, PortionSizesDoNotChangeTheOutput) {
  // Small buffers decode bit by bit; large ones take whole items at once while input lasts.
  // Both must leave the decoder in the same state for the next portion.
  std::string data = test::loggerLikeBytes(20000, 7) + std::string(3000, 'z');
  for (auto [window_bits, lookahead_bits] : {std::pair{4, 3}, {8, 4}, {9, 8}, {12, 11}, {15, 14}}) {
    std::string encoded = test::lzssEncode(data, window_bits, lookahead_bits);
    for (auto [buffer_size, max_sink, max_poll] :
         {std::tuple{3, 2, 7}, {8, 13, 3}, {64, 64, 1}, {64, 40, 300}, {1024, 1024, 5000}}) {
      SCOPED_TRACE(testing::Message() << window_bits << "/" << lookahead_bits << " buffer "
                                      << buffer_size << " sink " << max_sink << " poll " << max_poll);
      EXPECT_EQ(decodeInPortions(encoded, window_bits, lookahead_bits, buffer_size, max_sink, max_poll),
                data);
    }
  }
}

class FailingStream : public Stream {
 public:
  std::int64_t read(void*, std::size_t) override { return kStreamRefused; }
};

TEST(DecoderStream, ReadsThroughAndOwnsItsInput) {
  std::string data(5000, 'a');
  for (std::size_t i = 0; i < data.size(); i += 7) data[i] = static_cast<char>('b' + i % 5);
  test::StreamCalls calls;
  auto stream = DecoderStream::create(test::countingStreamOf(test::lzssEncode(data, 10, 5), &calls), 10, 5);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(test::readRest(stream.get()), data);
  EXPECT_EQ(stream->seek(0, kSeekSet), kStreamRefused);
  EXPECT_EQ(stream->close(), 0);
  EXPECT_EQ(calls.closes, 1);
  EXPECT_TRUE(calls.destroyed);

  auto failing = DecoderStream::create(std::make_unique<FailingStream>(), 8, 4);
  char c;
  EXPECT_EQ(failing->read(&c, 1), kStreamRefused);
}

}  // namespace
}  // namespace qm
