#include "lzss_encoder.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace qm::test {

void BitWriter::put(unsigned value, int bits) {
  // Older bits drop off the top of the 64-bit accumulator once they have been written out.
  pending_ = (pending_ << bits) | (value & ((1u << bits) - 1));
  pending_bits_ += bits;
  while (pending_bits_ >= 8) {
    pending_bits_ -= 8;
    bytes_.push_back(static_cast<char>(pending_ >> pending_bits_));
  }
}

std::string BitWriter::finish() {
  if (pending_bits_ > 0) put(0, 8 - pending_bits_);
  return std::move(bytes_);
}

namespace {

constexpr int kHashBits = 16;
constexpr int kChainDepth = 32;
constexpr std::size_t kShortScan = 64;  // how far back to look for matches shorter than 3

struct Match {
  std::size_t length = 0;
  std::size_t distance = 0;
};

class MatchFinder {
 public:
  MatchFinder(std::string_view data, int window_bits, int lookahead_bits)
      : data_(data),
        window_(std::size_t{1} << window_bits),
        max_length_(std::size_t{1} << lookahead_bits),
        head_(std::size_t{1} << kHashBits, 0),
        prev_(window_, 0) {
    // A back-reference pays off once its bits are fewer than those of the literals it replaces.
    int reference_bits = 1 + window_bits + lookahead_bits;
    min_length_ = static_cast<std::size_t>(reference_bits / 9 + 1);
  }

  Match find(std::size_t pos) const {
    Match best = findChained(pos);
    if (best.length < 3 && min_length_ < 3) best = findShort(pos, best);
    if (best.length < min_length_) best.length = 0;
    return best;
  }

  // Positions are stored plus one so that 0 means "none".
  void insert(std::size_t pos) {
    if (pos + 3 > data_.size()) return;
    std::uint32_t h = hashAt(pos);
    prev_[pos & (window_ - 1)] = head_[h];
    head_[h] = pos + 1;
  }

 private:
  std::uint32_t hashAt(std::size_t pos) const {
    auto b = [&](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(data_[pos + i])); };
    std::uint32_t v = b(0) | (b(1) << 8) | (b(2) << 16);
    return (v * 2654435761u) >> (32 - kHashBits);
  }

  std::size_t matchLength(std::size_t from, std::size_t pos, std::size_t limit) const {
    std::size_t n = 0;
    while (n < limit && data_[from + n] == data_[pos + n]) ++n;
    return n;
  }

  std::size_t limitAt(std::size_t pos) const {
    std::size_t left = data_.size() - pos;
    return left < max_length_ ? left : max_length_;
  }

  Match findChained(std::size_t pos) const {
    Match best;
    if (pos + 3 > data_.size()) return best;
    std::size_t limit = limitAt(pos);
    std::size_t candidate = head_[hashAt(pos)];
    for (int depth = 0; candidate != 0 && depth < kChainDepth; ++depth) {
      std::size_t from = candidate - 1;
      if (from >= pos || pos - from > window_) break;
      std::size_t length = matchLength(from, pos, limit);
      if (length > best.length) {
        best = {length, pos - from};
        if (length == limit) break;
      }
      std::size_t next = prev_[from & (window_ - 1)];
      if (next == 0 || next - 1 >= from) break;  // the slot was reused by a newer position
      candidate = next;
    }
    return best;
  }

  Match findShort(std::size_t pos, Match best) const {
    std::size_t limit = limitAt(pos);
    std::size_t reach = window_ < kShortScan ? window_ : kShortScan;
    for (std::size_t distance = 1; distance <= reach && distance <= pos; ++distance) {
      std::size_t length = matchLength(pos - distance, pos, limit);
      if (length > best.length) best = {length, distance};
    }
    return best;
  }

  std::string_view data_;
  std::size_t window_;
  std::size_t max_length_;
  std::size_t min_length_;
  std::vector<std::size_t> head_;
  std::vector<std::size_t> prev_;
};

}  // namespace

std::string lzssEncode(std::string_view data, int window_bits, int lookahead_bits) {
  MatchFinder finder(data, window_bits, lookahead_bits);
  BitWriter bits;
  std::size_t pos = 0;
  while (pos < data.size()) {
    Match match = finder.find(pos);
    if (match.length == 0) {
      bits.put(1, 1);
      bits.put(static_cast<unsigned char>(data[pos]), 8);
      finder.insert(pos++);
      continue;
    }
    bits.put(0, 1);
    bits.put(static_cast<unsigned>(match.distance - 1), window_bits);
    bits.put(static_cast<unsigned>(match.length - 1), lookahead_bits);
    for (std::size_t end = pos + match.length; pos < end; ++pos) finder.insert(pos);
  }
  return bits.finish();
}

std::string loggerLikeBytes(std::size_t size, unsigned seed) {
  std::mt19937 rng(seed);
  std::string out;
  for (std::uint32_t n = 0; out.size() < size; ++n) {
    out += static_cast<char>(1 + n % 3);
    out.append(reinterpret_cast<const char*>(&n), sizeof n);
    out += "\x18\xFE\xF1\x00\x08";
    out.append(rng() % 12, '\0');
    out += static_cast<char>(rng());
  }
  out.resize(size);
  return out;
}

}  // namespace qm::test
