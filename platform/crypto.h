#pragma once
// The cryptography of encrypted containers, from the system's own library: PBKDF2 with
// HMAC-SHA-256 for the key and AES-256-GCM with additional data and a tag check. OpenSSL's
// libcrypto on Linux (platform/openssl/), CNG on Windows (platform/windows/); no other file
// includes a crypto library's header.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace qm {

inline constexpr std::size_t kAes256KeySize = 32;
inline constexpr std::size_t kGcmNonceSize = 12;
inline constexpr std::size_t kGcmTagSize = 16;
// Larger counts are refused on every system: OpenSSL counts in int, and a derivation that long
// would not end in any useful time anyway.
inline constexpr std::uint32_t kLargestPbkdf2Iterations = 0x7fffffff;

// PBKDF2 with HMAC-SHA-256 over the password's bytes, giving key_size bytes. A count of 0
// derives as 1 does: the first HMAC round always runs. False when the library fails or the
// count is above kLargestPbkdf2Iterations.
bool pbkdf2HmacSha256(std::string_view password, const std::uint8_t* salt, std::size_t salt_size,
                      std::uint32_t iterations, std::uint8_t* key, std::size_t key_size);

enum class GcmResult {
  kAuthentic,    // the tag matches the additional data and the whole ciphertext
  kTagMismatch,  // wrong key, or the data was changed
  kFailed,       // the library failed, or the calls came in a wrong order
};

// One AES-256-GCM decryption: start, the additional data, any number of update steps for all
// but the last piece, then finish with the last piece, which checks the tag. The cipher state is
// released (and its key schedule wiped) whichever way the work ends.
//
// Before the last piece CNG decrypts only whole 16-byte blocks, and wants some bytes left for
// its final call: a step may hold back up to 16 bytes and write them with the next one. Pieces
// decrypted in place one right after another may even be held back whole and all written by
// finish (CNG does that in one call). Each step says how many bytes it wrote; a caller that
// advances its output by that count may decrypt in place (input and output in one buffer, the
// output at or behind the input).
class GcmDecryption {
 public:
  GcmDecryption();
  ~GcmDecryption();
  GcmDecryption(const GcmDecryption&) = delete;
  GcmDecryption& operator=(const GcmDecryption&) = delete;

  bool start(const std::uint8_t key[kAes256KeySize], const std::uint8_t nonce[kGcmNonceSize]);
  // All of it before the first piece.
  bool addAuthenticatedData(const std::uint8_t* data, std::size_t size);
  // A piece that is not the last; *produced is set to the bytes written to output.
  bool update(const std::uint8_t* input, std::size_t size, std::uint8_t* output, std::size_t* produced);
  // The last piece (possibly empty) and the check of the tag. Only with kAuthentic is what was
  // written plaintext to use.
  GcmResult finish(const std::uint8_t* input, std::size_t size, std::uint8_t* output, std::size_t* produced,
                   const std::uint8_t tag[kGcmTagSize]);

 private:
  struct State;                   // the library's cipher state, defined by each implementation
  std::unique_ptr<State> state_;  // null when it could not be made
};

// The writing side, for the tools and tests that make containers: encrypts size bytes of
// plain to cipher (same length) and gives the tag. False when the library fails.
bool gcmEncrypt(const std::uint8_t key[kAes256KeySize], const std::uint8_t nonce[kGcmNonceSize],
                const std::uint8_t* aad, std::size_t aad_size, const std::uint8_t* plain, std::size_t size,
                std::uint8_t* cipher, std::uint8_t tag[kGcmTagSize]);

}  // namespace qm
