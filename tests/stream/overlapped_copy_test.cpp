#include "stream/overlapped_copy.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/byte_stream.h"
#include "tests/support/counting_stream.h"

namespace qm {
namespace {

// Hands out at most a few bytes per read, the way a stream that gathers pieces may.
class TrickleStream : public MemoryStream {
 public:
  std::int64_t read(void* buffer, std::size_t count) override {
    return MemoryStream::read(buffer, count < 777 ? count : 777);
  }
};

// Accepts writes until `room` bytes were taken, then writes nothing (a full disk).
class FullDisk : public test::ByteStream {
 public:
  explicit FullDisk(std::size_t room) : room_(room) {}
  std::int64_t write(const void* buffer, std::size_t count) override {
    if (bytes.size() + count > room_) return 0;
    return ByteStream::write(buffer, count);
  }

 private:
  std::size_t room_;
};

TEST(OverlappedCopy, SmallAndLargeCopiesGiveTheSameBytes) {
  // Below and above the size from which the writing moves to a second thread.
  for (std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{5000}, std::size_t{20} << 20}) {
    SCOPED_TRACE("size " + std::to_string(size));
    std::string data = test::patternBytes(size);
    auto source = test::memoryStreamOf(data);
    test::ByteStream target("head");
    target.seek(4, kSeekSet);
    EXPECT_TRUE(copyOverlapped(source.get(), &target, size));
    EXPECT_EQ(target.bytes, "head" + data);
  }
}

TEST(OverlappedCopy, ShortReadsAreCollectedUntilTheSizeIsReached) {
  std::string data = test::patternBytes(9 << 20);
  TrickleStream source;
  source.write(data.data(), data.size());
  source.seek(0, kSeekSet);
  test::ByteStream target;
  EXPECT_TRUE(copyOverlapped(&source, &target, data.size()));
  EXPECT_EQ(target.bytes, data);
}

TEST(OverlappedCopy, AShortSourceOrAFullTargetFails) {
  std::string data = test::patternBytes(12 << 20);
  for (std::size_t size : {std::size_t{100}, data.size()}) {
    auto short_source = test::memoryStreamOf(data.substr(0, size - 1));
    test::ByteStream target;
    EXPECT_FALSE(copyOverlapped(short_source.get(), &target, size));

    auto source = test::memoryStreamOf(data.substr(0, size));
    FullDisk full(size / 2);
    EXPECT_FALSE(copyOverlapped(source.get(), &full, size));
  }
}

}  // namespace
}  // namespace qm
