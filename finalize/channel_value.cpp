#include "finalize/channel_value.h"

#include <cstring>
#include <limits>

#include "finalize/bit_extraction.h"
#include "finalize/conversion.h"

namespace qm {

namespace {

constexpr std::size_t kVariableLengthPrefix = 4;

double rawToDouble(const ChannelLayout& channel, std::uint64_t raw) {
  if (channel.value_kind != ValueKind::kFloat) return static_cast<double>(raw);
  if (channel.bit_count == 32) {
    float narrow;
    std::uint32_t bits = static_cast<std::uint32_t>(raw);
    std::memcpy(&narrow, &bits, sizeof narrow);
    return narrow;
  }
  double wide;
  std::memcpy(&wide, &raw, sizeof wide);
  return wide;
}

}  // namespace

double readNumericValue(const ChannelLayout& channel, const std::uint8_t* payload, std::size_t length) {
  std::uint64_t raw = extractBits(payload, length, static_cast<std::uint8_t>(channel.bit_position),
                                  static_cast<std::uint8_t>(channel.bit_count), channel.little_endian);
  return applyConversion(channel.conversion.get(), rawToDouble(channel, raw));
}

void readFixedBytes(const ChannelLayout& channel, const std::uint8_t* payload, std::size_t length,
                    ChannelValue& value) {
  std::uint64_t start = channel.bit_position / 8;
  std::uint64_t count = channel.bit_count / 8;
  std::uint64_t inside = start < length ? length - start : 0;
  if (count > inside) count = inside;
  if (count > ChannelValue::kByteCapacity) count = ChannelValue::kByteCapacity;
  if (count) std::memcpy(value.bytes, payload + start, count);
  value.byte_count = count;
}

bool readVariableBytes(FrameRecord& record, ChannelValue& value) {
  std::uint64_t declared = extractBits(record.variable_data, record.variable_remaining, 0, 32, true);
  if (declared > ChannelValue::kByteCapacity) return false;
  std::size_t after_prefix =
      record.variable_remaining > kVariableLengthPrefix ? record.variable_remaining - kVariableLengthPrefix : 0;
  std::size_t count = declared < after_prefix ? declared : after_prefix;
  if (count) std::memcpy(value.bytes, record.variable_data + kVariableLengthPrefix, count);
  value.byte_count = count;
  std::size_t step = kVariableLengthPrefix + declared;
  if (step > record.variable_remaining) step = record.variable_remaining;
  if (record.variable_data) record.variable_data += step;
  record.variable_remaining -= step;
  return true;
}

std::uint64_t doubleToUnsigned(double value) {
  if (!(value > 0.0)) return 0;
  if (value >= 18446744073709551616.0) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(value);
}

std::int32_t doubleToInt32(double value) {
  if (value != value) return 0;
  if (value <= static_cast<double>(std::numeric_limits<std::int32_t>::min())) return std::numeric_limits<std::int32_t>::min();
  if (value >= static_cast<double>(std::numeric_limits<std::int32_t>::max())) return std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(value);
}

}  // namespace qm
