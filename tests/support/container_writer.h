#pragma once
// Builds compressed and encrypted containers in memory, as a logger writes them.
#include <cstdint>
#include <string>
#include <string_view>

namespace qm::test {

// The 20-byte header: "Generic File", two bytes the reader keeps uninterpreted, the container
// type, its version and the device id (big-endian).
std::string makeContainerHeader(std::uint8_t container_type, std::uint8_t type_version,
                                std::uint32_t device_id);

// Header plus the two compressed-container fields (lookahead field, window size) as given, so
// that tests can write values the reader must refuse.
std::string makeCompressedPrefix(std::uint32_t device_id, std::uint32_t lookahead_field,
                                 std::uint32_t window_size);

std::string makeCompressedContainer(std::string_view payload, std::uint32_t device_id,
                                    int window_bits, int lookahead_bits);

// Nonce and salt are derived from the seed, so equal arguments give equal bytes.
std::string makeEncryptedContainer(std::string_view payload, std::uint32_t device_id,
                                   std::string_view password, std::uint32_t iterations = 1000,
                                   std::uint32_t seed = 1);

}  // namespace qm::test
