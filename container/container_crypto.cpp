#include "container/container_crypto.h"

#include <openssl/evp.h>

#include <climits>

namespace qm {
namespace {

EVP_CIPHER_CTX* cipherContext(void* context) { return static_cast<EVP_CIPHER_CTX*>(context); }

// The library counts lengths in int: larger inputs go in several steps.
constexpr std::size_t kLargestStep = std::size_t{1} << 30;

}  // namespace

bool deriveContainerKey(std::string_view password, const std::uint8_t* salt, std::size_t salt_size,
                        std::uint32_t iterations, std::uint8_t key[kContainerKeySize]) {
  // A stored count above what the library takes could not finish in any useful time anyway.
  if (password.size() > INT_MAX || salt_size > INT_MAX || iterations > INT_MAX) return false;
  // A count of 0 derives as 1 does: the first HMAC round always runs.
  int rounds = iterations == 0 ? 1 : static_cast<int>(iterations);
  return PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt, static_cast<int>(salt_size), rounds,
                           EVP_sha256(), static_cast<int>(kContainerKeySize), key) == 1;
}

GcmDecryption::GcmDecryption() : context_(EVP_CIPHER_CTX_new()) {}

GcmDecryption::~GcmDecryption() {
  if (context_) EVP_CIPHER_CTX_free(cipherContext(context_));
}

bool GcmDecryption::start(const std::uint8_t key[kContainerKeySize], const std::uint8_t nonce[kGcmNonceSize]) {
  EVP_CIPHER_CTX* context = cipherContext(context_);
  // The cipher first, then the nonce length (12 is the default, set anyway), then key and nonce.
  return context && EVP_DecryptInit_ex(context, EVP_aes_256_gcm(), nullptr, nullptr, nullptr) == 1 &&
         EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmNonceSize), nullptr) == 1 &&
         EVP_DecryptInit_ex(context, nullptr, nullptr, key, nonce) == 1;
}

bool GcmDecryption::addAuthenticatedData(const std::uint8_t* data, std::size_t size) {
  int ignored = 0;
  return context_ && size <= kLargestStep &&
         EVP_DecryptUpdate(cipherContext(context_), nullptr, &ignored, data, static_cast<int>(size)) == 1;
}

bool GcmDecryption::update(const std::uint8_t* input, std::size_t size, std::uint8_t* output) {
  if (!context_) return false;
  while (size != 0) {
    std::size_t step = size < kLargestStep ? size : kLargestStep;
    int produced = 0;
    if (EVP_DecryptUpdate(cipherContext(context_), output, &produced, input, static_cast<int>(step)) != 1 ||
        static_cast<std::size_t>(produced) != step) {
      return false;
    }
    input += step;
    output += step;
    size -= step;
  }
  return true;
}

bool GcmDecryption::finishAndCheckTag(const std::uint8_t tag[kGcmTagSize]) {
  EVP_CIPHER_CTX* context = cipherContext(context_);
  if (!context) return false;
  // The library takes the expected tag through a non-const pointer but only reads it.
  std::uint8_t expected[kGcmTagSize];
  for (std::size_t i = 0; i < kGcmTagSize; ++i) expected[i] = tag[i];
  std::uint8_t rest[16];
  int produced = 0;
  return EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_TAG, static_cast<int>(kGcmTagSize), expected) == 1 &&
         EVP_DecryptFinal_ex(context, rest, &produced) == 1 && produced == 0;
}

namespace {

bool encryptSteps(EVP_CIPHER_CTX* context, const std::uint8_t* plain, std::size_t size,
                  std::uint8_t* cipher) {
  while (size != 0) {
    std::size_t step = size < kLargestStep ? size : kLargestStep;
    int produced = 0;
    if (EVP_EncryptUpdate(context, cipher, &produced, plain, static_cast<int>(step)) != 1) return false;
    plain += step;
    cipher += step;
    size -= step;
  }
  return true;
}

}  // namespace

bool gcmEncrypt(const std::uint8_t key[kContainerKeySize], const std::uint8_t nonce[kGcmNonceSize],
                const std::uint8_t* aad, std::size_t aad_size, const std::uint8_t* plain, std::size_t size,
                std::uint8_t* cipher, std::uint8_t tag[kGcmTagSize]) {
  EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
  std::uint8_t rest[16];
  int produced = 0;
  int ignored = 0;
  bool ok = context && aad_size <= kLargestStep &&
            EVP_EncryptInit_ex(context, EVP_aes_256_gcm(), nullptr, nullptr, nullptr) == 1 &&
            EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmNonceSize), nullptr) == 1 &&
            EVP_EncryptInit_ex(context, nullptr, nullptr, key, nonce) == 1 &&
            EVP_EncryptUpdate(context, nullptr, &ignored, aad, static_cast<int>(aad_size)) == 1 &&
            encryptSteps(context, plain, size, cipher) &&
            EVP_EncryptFinal_ex(context, rest, &produced) == 1 &&
            EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_GET_TAG, static_cast<int>(kGcmTagSize), tag) == 1;
  if (context) EVP_CIPHER_CTX_free(context);
  return ok;
}

}  // namespace qm
