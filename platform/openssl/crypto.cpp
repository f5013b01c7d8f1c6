#include "platform/crypto.h"

#include <openssl/evp.h>

#include <climits>

namespace qm {
namespace {

// The library counts lengths in int: larger inputs go in several steps.
constexpr std::size_t kLargestStep = std::size_t{1} << 30;

// GCM is a stream mode here: every byte put in comes out at once.
bool decryptSteps(EVP_CIPHER_CTX* context, const std::uint8_t* input, std::size_t size, std::uint8_t* output) {
  while (size != 0) {
    std::size_t step = size < kLargestStep ? size : kLargestStep;
    int produced = 0;
    if (EVP_DecryptUpdate(context, output, &produced, input, static_cast<int>(step)) != 1 ||
        static_cast<std::size_t>(produced) != step) {
      return false;
    }
    input += step;
    output += step;
    size -= step;
  }
  return true;
}

bool encryptSteps(EVP_CIPHER_CTX* context, const std::uint8_t* plain, std::size_t size, std::uint8_t* cipher) {
  while (size != 0) {
    std::size_t step = size < kLargestStep ? size : kLargestStep;
    int produced = 0;
    if (EVP_EncryptUpdate(context, cipher, &produced, plain, static_cast<int>(step)) != 1 ||
        static_cast<std::size_t>(produced) != step) {
      return false;
    }
    plain += step;
    cipher += step;
    size -= step;
  }
  return true;
}

}  // namespace

bool pbkdf2HmacSha256(std::string_view password, const std::uint8_t* salt, std::size_t salt_size,
                      std::uint32_t iterations, std::uint8_t* key, std::size_t key_size) {
  if (password.size() > INT_MAX || salt_size > INT_MAX || key_size > INT_MAX ||
      iterations > kLargestPbkdf2Iterations) {
    return false;
  }
  int rounds = iterations == 0 ? 1 : static_cast<int>(iterations);
  return PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt, static_cast<int>(salt_size),
                           rounds, EVP_sha256(), static_cast<int>(key_size), key) == 1;
}

struct GcmDecryption::State {
  EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
  bool started = false;
  bool data_seen = false;  // additional data is refused after the first piece
  bool finished = false;

  ~State() {
    if (context) EVP_CIPHER_CTX_free(context);  // wipes the key schedule too
  }
  bool usable() const { return context && started && !finished; }
};

GcmDecryption::GcmDecryption() : state_(std::make_unique<State>()) {
  if (!state_->context) state_.reset();
}

GcmDecryption::~GcmDecryption() = default;

bool GcmDecryption::start(const std::uint8_t key[kAes256KeySize], const std::uint8_t nonce[kGcmNonceSize]) {
  if (!state_ || state_->started) return false;
  EVP_CIPHER_CTX* context = state_->context;
  // The cipher first, then the nonce length (12 is the default, set anyway), then key and nonce.
  state_->started = EVP_DecryptInit_ex(context, EVP_aes_256_gcm(), nullptr, nullptr, nullptr) == 1 &&
                    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmNonceSize), nullptr) == 1 &&
                    EVP_DecryptInit_ex(context, nullptr, nullptr, key, nonce) == 1;
  return state_->started;
}

bool GcmDecryption::addAuthenticatedData(const std::uint8_t* data, std::size_t size) {
  int ignored = 0;
  return state_ && state_->usable() && !state_->data_seen && size <= kLargestStep &&
         EVP_DecryptUpdate(state_->context, nullptr, &ignored, data, static_cast<int>(size)) == 1;
}

bool GcmDecryption::update(const std::uint8_t* input, std::size_t size, std::uint8_t* output, std::size_t* produced) {
  *produced = 0;
  if (!state_ || !state_->usable()) return false;
  state_->data_seen = true;
  if (!decryptSteps(state_->context, input, size, output)) return false;
  *produced = size;
  return true;
}

GcmResult GcmDecryption::finish(const std::uint8_t* input, std::size_t size, std::uint8_t* output,
                                std::size_t* produced, const std::uint8_t tag[kGcmTagSize]) {
  *produced = 0;
  if (!state_ || !state_->usable()) return GcmResult::kFailed;
  state_->finished = true;
  EVP_CIPHER_CTX* context = state_->context;
  if (!decryptSteps(context, input, size, output)) return GcmResult::kFailed;
  *produced = size;
  // The library takes the expected tag through a non-const pointer but only reads it.
  std::uint8_t expected[kGcmTagSize];
  for (std::size_t i = 0; i < kGcmTagSize; ++i) expected[i] = tag[i];
  if (EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_TAG, static_cast<int>(kGcmTagSize), expected) != 1) {
    return GcmResult::kFailed;
  }
  std::uint8_t rest[16];
  int rest_size = 0;
  // The library reports a mismatch only as a failed final step; nothing else can fail there.
  if (EVP_DecryptFinal_ex(context, rest, &rest_size) != 1) return GcmResult::kTagMismatch;
  return rest_size == 0 ? GcmResult::kAuthentic : GcmResult::kFailed;
}

bool gcmEncrypt(const std::uint8_t key[kAes256KeySize], const std::uint8_t nonce[kGcmNonceSize],
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
            encryptSteps(context, plain, size, cipher) && EVP_EncryptFinal_ex(context, rest, &produced) == 1 &&
            produced == 0 &&
            EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_GET_TAG, static_cast<int>(kGcmTagSize), tag) == 1;
  if (context) EVP_CIPHER_CTX_free(context);
  return ok;
}

}  // namespace qm
