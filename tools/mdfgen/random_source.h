#pragma once
// A small deterministic generator (xoshiro256**, seeded through splitmix64): the same seed gives
// the same file on every platform, which the standard library's distributions do not promise.
#include <bit>
#include <cstdint>

namespace qm {

class RandomSource {
 public:
  explicit RandomSource(std::uint64_t seed) {
    for (std::uint64_t& word : state_) {
      seed += 0x9E3779B97F4A7C15ULL;
      std::uint64_t z = seed;
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
      word = z ^ (z >> 31);
    }
  }

  std::uint64_t next() {
    std::uint64_t result = std::rotl(state_[1] * 5, 7) * 9;
    std::uint64_t t = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= t;
    state_[3] = std::rotl(state_[3], 45);
    return result;
  }

  // Uniform in [0, bound); the tiny modulo bias does not matter for test traffic.
  std::uint32_t below(std::uint32_t bound) { return bound == 0 ? 0 : static_cast<std::uint32_t>((next() >> 32) % bound); }
  std::uint32_t between(std::uint32_t low, std::uint32_t high) { return low + below(high - low + 1); }
  bool chance(std::uint32_t one_in) { return below(one_in) == 0; }

 private:
  std::uint64_t state_[4];
};

}  // namespace qm
