#include "container/compressed_stream.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/support/counting_stream.h"
#include "tests/support/container_writer.h"
#include "tests/support/lzss_encoder.h"

namespace qm {
namespace {

std::unique_ptr<Stream> openContainer(const std::string& bytes) {
  auto inner = test::memoryStreamOf(bytes);
  ContainerHeader header{};
  if (detectContainer(inner.get(), &header) != 1) return nullptr;
  return openCompressed(std::move(inner), header);
}

std::string contentOf(Stream* layer) {
  layer->seek(0, kSeekSet);
  return test::readRest(layer);
}

TEST(CompressedStream, RoundTripsEveryWindowAndSeveralLookaheads) {
  for (int window_bits = 4; window_bits <= 15; ++window_bits) {
    for (int lookahead_bits : {3, 4, (window_bits + 3) / 2, window_bits - 1}) {
      if (lookahead_bits < 3 || lookahead_bits >= window_bits) continue;
      for (std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4097}, std::size_t{60000}}) {
        SCOPED_TRACE(testing::Message() << window_bits << "/" << lookahead_bits << " size " << size);
        std::string payload = test::loggerLikeBytes(size, static_cast<unsigned>(size + window_bits));
        auto layer = openContainer(test::makeCompressedContainer(payload, 5, window_bits, lookahead_bits));
        ASSERT_NE(layer, nullptr);
        EXPECT_EQ(layer->tell(), static_cast<std::int64_t>(size));  // left at its end
        EXPECT_EQ(contentOf(layer.get()), payload);
      }
    }
  }
  // The test encoder must really find matches, or back-references would go untested.
  EXPECT_LT(test::makeCompressedContainer(test::loggerLikeBytes(60000, 3), 5, 11, 4).size(), 30000u);
}

TEST(CompressedStream, WindowBitsComeFromTrailingZeros) {
  std::string payload = test::loggerLikeBytes(3000, 9);
  // 768 = 3 << 8: decoded with 8 window bits.
  auto layer = openContainer(test::makeCompressedPrefix(1, 4, 768) + test::lzssEncode(payload, 8, 4));
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(contentOf(layer.get()), payload);
  // Only the low 8 bits of the lookahead field count.
  layer = openContainer(test::makeCompressedPrefix(1, 0x7704, 256) + test::lzssEncode(payload, 8, 4));
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(contentOf(layer.get()), payload);
}

TEST(CompressedStream, InvalidParametersFailTheLayer) {
  std::string bits = test::lzssEncode("abcabcabc", 8, 4);
  EXPECT_EQ(openContainer(test::makeCompressedPrefix(1, 8, 256) + bits), nullptr);   // lookahead = window bits
  EXPECT_EQ(openContainer(test::makeCompressedPrefix(1, 2, 8) + bits), nullptr);     // 3 window bits
  EXPECT_EQ(openContainer(test::makeCompressedPrefix(1, 4, 0) + bits), nullptr);
  EXPECT_EQ(openContainer(test::makeCompressedPrefix(1, 4, 1u << 16) + bits), nullptr);
  EXPECT_EQ(openContainer(test::makeCompressedPrefix(1, 4, 256).substr(0, 27)), nullptr);
  ContainerHeader version_two{};
  auto container = test::memoryStreamOf(test::makeCompressedPrefix(1, 4, 256) + bits);
  ASSERT_EQ(detectContainer(container.get(), &version_two), 1);
  version_two.type_version = 2;
  EXPECT_EQ(openCompressed(std::move(container), version_two), nullptr);
}

TEST(CompressedStream, ConsumesItsInnerStream) {
  std::string container = test::makeCompressedContainer("payload payload", 1, 8, 4);
  test::StreamCalls calls;
  auto inner = test::countingStreamOf(container, &calls);
  ContainerHeader header{};
  ASSERT_EQ(detectContainer(inner.get(), &header), 1);
  auto layer = openCompressed(std::move(inner), header);
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(calls.closes, 1);
  EXPECT_TRUE(calls.destroyed);
  EXPECT_EQ(layer->close(), 0);
  char c;
  EXPECT_EQ(layer->read(&c, 1), kStreamMissingOp);  // nothing left after close
}

TEST(CompressedStream, ArbitraryBytesDecodeWithoutHarm) {
  std::mt19937 rng(11);
  for (auto [window_bits, lookahead_bits] : {std::pair{4, 3}, {8, 7}, {9, 4}, {15, 14}}) {
    std::string noise(3000, '\0');
    for (char& c : noise) c = static_cast<char>(rng());
    auto layer = openContainer(test::makeCompressedPrefix(1, lookahead_bits, 1u << window_bits) + noise);
    ASSERT_NE(layer, nullptr);
    // Items take at least 8 bits and yield at most 2^lookahead bytes each.
    EXPECT_LE(layer->tell(), static_cast<std::int64_t>(noise.size()) << lookahead_bits);
  }
}

// Fails every read after the first few, as a broken disk would; its bytes are reachable only
// by reading, so the layer decodes it piece by piece.
class FailingAfter : public MemoryStream {
 public:
  explicit FailingAfter(int good_reads) : good_reads_(good_reads) {}
  std::int64_t read(void* buffer, std::size_t count) override {
    return good_reads_-- > 0 ? MemoryStream::read(buffer, count) : kStreamRefused;
  }
  ByteView contents() override { return {}; }

 private:
  int good_reads_;
};

TEST(CompressedStream, DecodingErrorsEndTheContentWithoutFailing) {
  std::string payload = test::loggerLikeBytes(100000, 4);
  std::string container = test::makeCompressedContainer(payload, 1, 8, 4);
  // A cut-off bitstream decodes up to the cut.
  auto cut = openContainer(container.substr(0, container.size() / 2));
  ASSERT_NE(cut, nullptr);
  std::string partial = contentOf(cut.get());
  EXPECT_GT(partial.size(), 0u);
  EXPECT_LT(partial.size(), payload.size());
  EXPECT_EQ(partial, payload.substr(0, partial.size()));

  // An inner read error drops the chunk being decoded and keeps the whole chunks before it.
  auto failing = std::make_unique<FailingAfter>(8 + 10);  // 8 header reads, then 10 input chunks
  failing->write(container.data(), container.size());
  ContainerHeader header{};
  ASSERT_EQ(detectContainer(failing.get(), &header), 1);
  auto layer = openCompressed(std::move(failing), header);
  ASSERT_NE(layer, nullptr);
  std::string kept = contentOf(layer.get());
  EXPECT_EQ(kept.size() % 4096, 0u);
  EXPECT_LT(kept.size(), payload.size());
  EXPECT_EQ(kept, payload.substr(0, kept.size()));
}

}  // namespace
}  // namespace qm
