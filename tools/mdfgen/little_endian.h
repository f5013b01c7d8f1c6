#pragma once
// Little-endian byte placement for MDF4 fields, independent of the host's byte order.
#include <cstdint>
#include <cstring>

namespace qm {

inline void putLe(unsigned char* out, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

inline std::uint64_t getLe(const unsigned char* in, int bytes) {
  std::uint64_t value = 0;
  for (int i = bytes - 1; i >= 0; --i) value = (value << 8) | in[i];
  return value;
}

inline void putF64(unsigned char* out, double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, 8);
  putLe(out, bits, 8);
}

inline double getF64(const unsigned char* in) {
  std::uint64_t bits = getLe(in, 8);
  double value;
  std::memcpy(&value, &bits, 8);
  return value;
}

// Writes `count` bits of `value` at bit `position` of a record, least significant bit first,
// leaving the neighbouring bits as they were. Whole bytes take the fast path.
inline void putBits(unsigned char* record, std::uint32_t position, std::uint32_t count, std::uint64_t value) {
  if (position % 8 == 0 && count % 8 == 0) {
    putLe(record + position / 8, value, static_cast<int>(count / 8));
    return;
  }
  for (std::uint32_t k = 0; k < count; ++k) {
    std::uint32_t bit = position + k;
    unsigned char mask = static_cast<unsigned char>(1u << (bit % 8));
    if ((value >> k) & 1) {
      record[bit / 8] |= mask;
    } else {
      record[bit / 8] &= static_cast<unsigned char>(~mask);
    }
  }
}

inline std::uint64_t getBits(const unsigned char* record, std::uint32_t position, std::uint32_t count) {
  if (position % 8 == 0 && count % 8 == 0) return getLe(record + position / 8, static_cast<int>(count / 8));
  std::uint64_t value = 0;
  for (std::uint32_t k = 0; k < count; ++k) {
    std::uint32_t bit = position + k;
    value |= static_cast<std::uint64_t>((record[bit / 8] >> (bit % 8)) & 1) << k;
  }
  return value;
}

}  // namespace qm
