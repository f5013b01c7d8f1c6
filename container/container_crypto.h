#pragma once
// The cryptography of encrypted containers: the key from the device's password
// (PBKDF2-HMAC-SHA-256) and AES-256-GCM decryption with additional data and a tag check. The
// crypto library is reached only through this file, so no other code depends on its headers.
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qm {

inline constexpr std::size_t kContainerKeySize = 32;
inline constexpr std::size_t kGcmNonceSize = 12;
inline constexpr std::size_t kGcmTagSize = 16;

// False when the derivation fails.
bool deriveContainerKey(std::string_view password, const std::uint8_t* salt, std::size_t salt_size,
                        std::uint32_t iterations, std::uint8_t key[kContainerKeySize]);

// One AES-256-GCM decryption. Any number of update steps, then finish, which checks the tag.
// The cipher state is released (and its key schedule wiped) whichever way the work ends.
class GcmDecryption {
 public:
  GcmDecryption();
  ~GcmDecryption();
  GcmDecryption(const GcmDecryption&) = delete;
  GcmDecryption& operator=(const GcmDecryption&) = delete;

  bool start(const std::uint8_t key[kContainerKeySize], const std::uint8_t nonce[kGcmNonceSize]);
  bool addAuthenticatedData(const std::uint8_t* data, std::size_t size);
  // Decrypts size bytes to output, which may be the input itself; the mode is a stream mode,
  // so exactly size bytes come out.
  bool update(const std::uint8_t* input, std::size_t size, std::uint8_t* output);
  // True only when the whole input and additional data match the tag.
  bool finishAndCheckTag(const std::uint8_t tag[kGcmTagSize]);

 private:
  void* context_;  // the library's cipher context; null when it could not be made
};

// The writing side, for the tools and tests that make containers: encrypts size bytes of
// plain to cipher (same length) and gives the tag. False when the library fails.
bool gcmEncrypt(const std::uint8_t key[kContainerKeySize], const std::uint8_t nonce[kGcmNonceSize],
                const std::uint8_t* aad, std::size_t aad_size, const std::uint8_t* plain, std::size_t size,
                std::uint8_t* cipher, std::uint8_t tag[kGcmTagSize]);

}  // namespace qm
