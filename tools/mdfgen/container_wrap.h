#pragma once
// Wraps a generated file in the containers a logger writes: compressed and/or encrypted, any
// number of times, innermost first.
#include <cstdint>
#include <string>
#include <vector>

namespace qm {

enum class ContainerLayer { kCompress, kEncrypt };

struct ContainerSettings {
  std::vector<ContainerLayer> layers;  // innermost first
  std::uint32_t device_id = 0x1A2B3C4D;
  std::string password;
  std::uint32_t iterations = 1000;
  int window_bits = 11;
  int lookahead_bits = 4;
  std::uint32_t seed = 1;  // for the nonce and the salt
};

// Replaces `bytes` by its wrapped form; false when encryption failed.
bool wrapInContainers(std::string& bytes, const ContainerSettings& settings);

}  // namespace qm
