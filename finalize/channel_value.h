#pragma once
// Reads one channel's value out of a record, as the frame decoders need it.
#include <cstddef>
#include <cstdint>

#include "finalize/bus_frame.h"
#include "mdf/record_layout.h"

namespace qm {

struct ChannelValue {
  static constexpr std::size_t kByteCapacity = 64;

  double number = 0.0;           // numeric channels, after the conversion
  std::uint8_t bytes[kByteCapacity] = {};  // byte-array channels
  std::size_t byte_count = 0;
};

// Numeric value: the raw bits, taken as a float for float channels, then converted.
double readNumericValue(const ChannelLayout& channel, const std::uint8_t* payload, std::size_t length);

// Byte array stored in the record itself; copies what lies inside the record, at most 64 bytes.
void readFixedBytes(const ChannelLayout& channel, const std::uint8_t* payload, std::size_t length,
                    ChannelValue& value);

// Byte array in the signal data: a 32-bit length then the bytes, at the record's variable-length
// cursor, which moves past them. False, with nothing copied, when the length exceeds 64.
bool readVariableBytes(FrameRecord& record, ChannelValue& value);

// Conversions of a decoded double into frame fields, defined for every double (NaN and values
// out of range saturate instead of being undefined).
std::uint64_t doubleToUnsigned(double value);
std::int32_t doubleToInt32(double value);

}  // namespace qm
