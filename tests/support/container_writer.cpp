#include "container_writer.h"

#include <vector>

#include "lzss_encoder.h"
#include "platform/crypto.h"
#include "platform/secret.h"

namespace qm::test {
namespace {

constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kSaltSize = 16;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kKeySize = 32;

void appendU32BigEndian(std::string* out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out->push_back(static_cast<char>(value >> shift));
}

// Deterministic bytes from a seed (xorshift32; a zero seed is moved off the fixed point).
void appendSeededBytes(std::string* out, std::uint32_t* state, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t x = *state ? *state : 0x9E3779B9u;
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    *state = x;
    out->push_back(static_cast<char>(x >> 24));
  }
}

const std::uint8_t* bytesOf(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

}  // namespace

std::string makeContainerHeader(std::uint8_t container_type, std::uint8_t type_version,
                                std::uint32_t device_id) {
  std::string header = "Generic File";
  header.push_back('\x01');  // the two bytes the reader keeps without interpreting
  header.push_back('\x00');
  header.push_back(static_cast<char>(container_type));
  header.push_back(static_cast<char>(type_version));
  appendU32BigEndian(&header, device_id);
  return header;
}

std::string makeCompressedPrefix(std::uint32_t device_id, std::uint32_t lookahead_field,
                                 std::uint32_t window_size) {
  std::string prefix = makeContainerHeader(34, 1, device_id);
  appendU32BigEndian(&prefix, lookahead_field);
  appendU32BigEndian(&prefix, window_size);
  return prefix;
}

std::string makeCompressedContainer(std::string_view payload, std::uint32_t device_id,
                                    int window_bits, int lookahead_bits) {
  return makeCompressedPrefix(device_id, static_cast<std::uint32_t>(lookahead_bits),
                              std::uint32_t{1} << window_bits) +
         lzssEncode(payload, window_bits, lookahead_bits);
}

std::string makeEncryptedContainer(std::string_view payload, std::uint32_t device_id,
                                   std::string_view password, std::uint32_t iterations,
                                   std::uint32_t seed) {
  std::string out = makeContainerHeader(17, 1, device_id);
  std::uint32_t state = seed;
  appendSeededBytes(&out, &state, kNonceSize);
  appendU32BigEndian(&out, iterations);
  appendSeededBytes(&out, &state, kSaltSize);
  std::string_view nonce = std::string_view(out).substr(20, kNonceSize);
  std::string_view salt = std::string_view(out).substr(36, kSaltSize);

  std::uint8_t key[kKeySize];
  if (!pbkdf2HmacSha256(password, bytesOf(salt), salt.size(), iterations, key, sizeof key)) return {};
  std::vector<std::uint8_t> cipher_text(payload.size());
  std::uint8_t tag[kTagSize];
  bool ok = gcmEncrypt(key, bytesOf(nonce), bytesOf(out), out.size(), bytesOf(payload), payload.size(),
                       cipher_text.data(), tag);
  wipeSecret(key, sizeof key);
  if (!ok) return {};
  out.append(reinterpret_cast<const char*>(cipher_text.data()), cipher_text.size());
  out.append(reinterpret_cast<const char*>(tag), kTagSize);
  return out;
}

}  // namespace qm::test
