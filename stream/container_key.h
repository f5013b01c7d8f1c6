#pragma once
// The key of an encrypted container: PBKDF2-HMAC-SHA-256 over the password bytes.
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qm {

inline constexpr std::size_t kContainerKeySize = 32;

// False when the derivation fails.
bool deriveContainerKey(std::string_view password, const std::uint8_t* salt, std::size_t salt_size,
                        std::uint32_t iterations, std::uint8_t key[kContainerKeySize]);

}  // namespace qm
