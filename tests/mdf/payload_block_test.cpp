#include "mdf/payload_block.h"

#include <gtest/gtest.h>

#include "mdf/block_factory.h"
#include "mdf/data_group_block.h"
#include "mdf/save_context.h"
#include "tests/mdf/mdf_test_util.h"

namespace qm::test {
namespace {

using B = MdfBuilder;

// Delivers at most `limit` bytes per read once limited, to provoke short reads.
class TrickleStream : public ByteStream {
 public:
  using ByteStream::ByteStream;
  std::int64_t read(void* buffer, std::size_t count) override {
    return ByteStream::read(buffer, limit ? std::min(count, limit) : count);
  }
  std::size_t limit = 0;
};

struct LoadedPayload {
  std::unique_ptr<TrickleStream> input;
  BlockRef block;
  std::uint64_t offset = 0;
  PayloadBlock* payload() const { return blockAs<PayloadBlock>(block); }
};

LoadedPayload loadPayload(const std::string& code, const std::string& bytes, std::uint64_t length_override = 0) {
  B b;
  auto h = b.block(code, {}, bytes);
  if (length_override) b.setLength(h, length_override);
  b.header({.first_data_group = b.dataGroup({.data = h})});
  LoadedPayload loaded{std::make_unique<TrickleStream>(b.bytes()), nullptr, b.offsetOf(h)};
  LoadContext ctx(loaded.input.get());
  loaded.block = loadSingle(ctx, loaded.input.get(), b.offsetOf(h));
  return loaded;
}

TEST(PayloadView, ReadStopsAtTheEndOfTheDataSectionAndSeeksFromItsStart) {
  LoadedPayload dt = loadPayload("DT", "0123456789abcdefghij");  // the data group follows it
  ASSERT_TRUE(dt.payload());
  Stream* view = dt.payload()->payloadStream();
  char buffer[100];
  EXPECT_EQ(view->read(buffer, sizeof buffer), 20);
  EXPECT_EQ(view->read(buffer, sizeof buffer), 0);
  EXPECT_EQ(view->tell(), 20);
  EXPECT_EQ(view->seek(15, kSeekSet), 15);
  EXPECT_EQ(view->seek(10, kSeekCur), 10);  // not 25: origin 1 also counts from the start
  EXPECT_EQ(view->read(buffer, 1), 1);
  EXPECT_EQ(buffer[0], 'a');
  EXPECT_EQ(view->seek(-3, kSeekEnd), 20);
  EXPECT_EQ(view->seek(500, kSeekSet), 20);
  EXPECT_EQ(view->seek(5, 7), 0);
}

TEST(PayloadView, DataBlockRunsAheadOnShortReadsSignalDataDoesNot) {
  for (const char* code : {"DT", "SD"}) {
    LoadedPayload loaded = loadPayload(code, "0123456789");
    ASSERT_TRUE(loaded.payload());
    loaded.input->limit = 3;
    Stream* view = loaded.payload()->payloadStream();
    char buffer[8];
    EXPECT_EQ(view->read(buffer, 8), 3);
    EXPECT_EQ(view->tell(), std::string(code) == "DT" ? 8 : 3) << code;
  }
}

TEST(PayloadBlock, LengthBeyondTheFileIsCutAndMissingLengthGetsAHeader) {
  LoadedPayload dt = loadPayload("DT", "0123", 1000);
  ASSERT_TRUE(dt.payload());
  EXPECT_EQ(dt.payload()->dataSectionSize(), dt.input->bytes.size() - dt.offset - 24);
  dt = loadPayload("DT", "0123", 8);
  ASSERT_TRUE(dt.payload());
  EXPECT_EQ(dt.payload()->dataSectionSize(), 0u);
  ByteStream out;
  SaveContext ctx{&out};
  ctx.position = 200;
  EXPECT_EQ(saveBlock(dt.block.get(), ctx, nullptr), 1);
  EXPECT_EQ(readU64At(out.bytes, 208), 24u);
  EXPECT_EQ(ctx.position, 224u);
}

TEST(PayloadBlock, MemoryPayloadIsCopiedWholeFromItsStart) {
  BlockRef sd = PayloadBlock::makeFromStream(BlockType::kSD, memoryStreamOf("0123456789abc"));
  auto* payload = blockAs<PayloadBlock>(sd);
  ASSERT_TRUE(payload);
  EXPECT_EQ(payload->header.length, 37u);
  char buffer[4];
  payload->payloadStream()->read(buffer, sizeof buffer);  // a reader moved the view
  ByteStream out;
  SaveContext ctx{&out};
  ctx.position = 1000;
  EXPECT_EQ(saveBlock(sd.get(), ctx, nullptr), 1);
  EXPECT_EQ(ctx.position, 1040u);
  EXPECT_EQ(out.bytes.substr(1000, 4), "##SD");
  EXPECT_EQ(readU64At(out.bytes, 1008), 37u);
  EXPECT_EQ(out.bytes.substr(1024), "0123456789abc");
  EXPECT_FALSE(PayloadBlock::makeFromStream(BlockType::kTX, memoryStreamOf("x")));
}

}  // namespace
}  // namespace qm::test
