#pragma once
// LZSS encoder producing the bitstream the compressed container's decoder reads: per item a
// tag bit, then either an 8-bit literal (tag 1) or, with tag 0, the back-reference's
// distance - 1 in window_bits bits followed by its length - 1 in lookahead_bits bits, most
// significant bit first, the last byte padded with zero bits.
#include <cstdint>
#include <string>
#include <string_view>

namespace qm::test {

// Valid for every pair the decoder accepts (window bits 4..15, lookahead bits 3..window bits - 1).
std::string lzssEncode(std::string_view data, int window_bits, int lookahead_bits);

// Records with counters, constant fields, runs of zeros and some noise, as a logger writes them:
// literals and back-references of many lengths and distances occur when they are encoded.
std::string loggerLikeBytes(std::size_t size, unsigned seed);

// Writes fields most significant bit first; used by the encoder and by tests that hand-make
// bitstreams.
class BitWriter {
 public:
  void put(unsigned value, int bits);
  // Pads the last byte with zero bits and hands the bytes over.
  std::string finish();

 private:
  std::string bytes_;
  std::uint64_t pending_ = 0;
  int pending_bits_ = 0;
};

}  // namespace qm::test
