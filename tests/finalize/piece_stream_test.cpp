#include "finalize/piece_stream.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/counting_stream.h"

namespace qm {
namespace {

ByteView viewOf(const std::string& bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

std::vector<Piece> walk(const PieceList& list) {
  std::vector<Piece> pieces;
  PieceList::Cursor cursor(list);
  for (Piece piece; cursor.next(piece);) pieces.push_back(piece);
  return pieces;
}

std::string readAll(PieceStream& stream, std::size_t chunk) {
  std::string out;
  std::string buffer(chunk, '\0');
  for (std::int64_t got; (got = stream.read(buffer.data(), chunk)) > 0;) out.append(buffer.data(), static_cast<std::size_t>(got));
  return out;
}

TEST(PieceList, AdjacentPiecesMergeAndEmptyOnesAreLeftOut) {
  PieceList list;
  list.add(10, 5);
  list.add(15, 3);
  list.add(40, 0);
  list.add(18, 2);
  list.add(30, 1);
  ASSERT_EQ(walk(list).size(), 2u);
  EXPECT_EQ(walk(list)[0].offset, 10u);
  EXPECT_EQ(walk(list)[0].length, 10u);
  EXPECT_EQ(walk(list)[1].offset, 30u);
  EXPECT_EQ(list.totalLength(), 11u);
}

TEST(PieceList, AnyOrderAndSizeOfPiecesComesBackAsAdded) {
  std::mt19937_64 random(7);
  std::vector<Piece> added;
  PieceList list;
  std::uint64_t end = 0;
  for (int i = 0; i < 5000; ++i) {
    // Backwards, huge, and small steps, so numbers of one to ten bytes all occur.
    std::uint64_t offset = i % 3 == 0 ? random() >> (random() % 64) : end + 1 + random() % 300;
    std::uint64_t length = 1 + (random() >> (1 + random() % 63));
    if (offset > UINT64_MAX / 2) offset /= 2;
    if (length > UINT64_MAX / 4) length /= 4;
    list.add(offset, length);
    added.push_back({offset, length});
    end = offset + length;
  }
  std::vector<Piece> walked = walk(list);
  ASSERT_EQ(walked.size(), added.size());
  for (std::size_t i = 0; i < added.size(); ++i) {
    EXPECT_EQ(walked[i].offset, added[i].offset) << i;
    EXPECT_EQ(walked[i].length, added[i].length) << i;
  }
}

TEST(PieceList, ShortRecordsCostAboutTwoBytesEach) {
  PieceList list;
  for (std::uint64_t i = 0; i < 10000; ++i) list.add(i * 40, 23);
  EXPECT_LE(list.encodedSize(), 2u * 10000);
}

// Pieces of every length around the short-copy size, read through buffers of awkward sizes:
// exactly the listed bytes come out, nothing from beyond a piece.
TEST(PieceStream, DeliversThePiecesInOrderThroughAnyBufferSize) {
  std::string memory = test::patternBytes(20000);
  std::string expected;
  auto listOfPieces = [&] {
    std::mt19937 random(3);
    PieceList list;
    expected.clear();
    for (int i = 0; i < 600; ++i) {
      std::size_t length = random() % 70;
      std::size_t offset = random() % (memory.size() - length + 1);
      if (i % 50 == 0) offset = memory.size() - length;  // right at the end of the memory
      list.add(offset, length);
      expected += memory.substr(offset, length);
    }
    return list;
  };
  for (std::size_t chunk : {1ul, 7ul, 31ul, 32ul, 33ul, 100ul, 4096ul, 1ul << 20}) {
    SCOPED_TRACE("chunk " + std::to_string(chunk));
    PieceStream stream(viewOf(memory), listOfPieces());
    EXPECT_EQ(stream.size(), expected.size());
    EXPECT_EQ(readAll(stream, chunk), expected);
    EXPECT_EQ(stream.tell(), static_cast<std::int64_t>(expected.size()));
  }
}

TEST(PieceStream, SeeksMeasureRewindAndSkip) {
  std::string memory = test::patternBytes(1000);
  PieceList list;
  list.add(100, 50);
  list.add(10, 20);
  list.add(900, 100);
  const std::string expected = memory.substr(100, 50) + memory.substr(10, 20) + memory.substr(900, 100);
  PieceStream stream(viewOf(memory), std::move(list));

  EXPECT_EQ(streamSize(&stream), 170);
  EXPECT_EQ(stream.tell(), 0);
  EXPECT_EQ(stream.seek(60, kSeekSet), 60);
  EXPECT_EQ(readAll(stream, 16), expected.substr(60));
  EXPECT_EQ(stream.seek(-100, kSeekEnd), 70);
  EXPECT_EQ(stream.seek(5, kSeekCur), 75);
  char byte;
  ASSERT_EQ(stream.read(&byte, 1), 1);
  EXPECT_EQ(byte, expected[75]);
  EXPECT_EQ(stream.seek(-500, kSeekCur), 0);
  EXPECT_EQ(stream.seek(5000, kSeekSet), 170);
  EXPECT_EQ(stream.read(&byte, 1), 0);
  EXPECT_EQ(stream.seek(0, kSeekSet), 0);
  EXPECT_EQ(readAll(stream, 1000), expected);
  EXPECT_EQ(stream.seek(0, 7), kStreamRefused);
}

TEST(PieceStream, APieceOutsideTheMemoryEndsTheStreamEarly) {
  std::string memory = test::patternBytes(100);
  PieceList list;
  list.add(0, 10);
  list.add(95, 10);  // runs past the end
  list.add(20, 10);
  PieceStream stream(viewOf(memory), std::move(list));
  EXPECT_EQ(stream.size(), 30u);
  EXPECT_EQ(readAll(stream, 64), memory.substr(0, 10));
}

}  // namespace
}  // namespace qm
