#include "finalize/bit_extraction.h"

#include <gtest/gtest.h>

#include <vector>

#include "finalize/conversion.h"

namespace qm {
namespace {

TEST(BitExtraction, ByteOrderRangeAndWrapAtTwoHundredFiftySix) {
  const std::uint8_t bytes[] = {0xAB, 0xCD};
  EXPECT_EQ(extractBits(bytes, 2, 4, 8, true), 0xDAu);
  EXPECT_EQ(extractBits(bytes, 2, 4, 8, false), 0xBCu);
  EXPECT_EQ(extractBits(bytes, 2, 9, 7, true), 0x66u);  // ends exactly at the buffer's end
  EXPECT_EQ(extractBits(bytes, 2, 12, 5, true), 0u);    // one bit past it
  std::vector<std::uint8_t> wide(33, 0);
  wide[0] = 0x05;
  wide[31] = 0xC0;
  // 6 bits from 254 run through 255 and wrap: bits 3, 2, 1, 0, 255, 254.
  EXPECT_EQ(extractBits(wide.data(), 33, 254, 6, true), 0x17u);
  EXPECT_EQ(extractBits(wide.data(), 32, 254, 6, true), 0u);  // the range check does not wrap
}

TEST(Conversion, LinearAndValueToValue) {
  Conversion linear{.offset = 10.0, .factor = 0.5, .table = {}};
  EXPECT_DOUBLE_EQ(applyConversion(&linear, 8.0), 14.0);
  Conversion table{.kind = Conversion::Kind::kValueToValue, .table = {{1.0, 100.0}, {2.0, 200.0}}};
  EXPECT_DOUBLE_EQ(applyConversion(&table, 2.0), 200.0);
  EXPECT_DOUBLE_EQ(applyConversion(&table, 3.0), 3.0);  // not a key: unchanged
  EXPECT_DOUBLE_EQ(applyConversion(nullptr, 3.0), 3.0);
}

}  // namespace
}  // namespace qm
