#include "platform/crypto.h"

#include <windows.h>
#include <bcrypt.h>

#include <climits>
#include <cstring>
#include <vector>

namespace qm {
namespace {

constexpr std::size_t kBlock = 16;
// One call takes a ULONG count. A final call may have all of that; larger inputs go first in
// chained calls of kLargestCall, a whole number of blocks.
constexpr std::size_t kLargestFinalCall = ULONG_MAX;
constexpr std::size_t kLargestCall = std::size_t{1} << 30;

bool succeeded(NTSTATUS status) { return status >= 0; }
// From ntstatus.h, which does not go with windows.h.
constexpr NTSTATUS kSuccess = 0;
constexpr NTSTATUS kUnsuccessful = static_cast<NTSTATUS>(0xC0000001);
constexpr NTSTATUS kAuthTagMismatch = static_cast<NTSTATUS>(0xC000A002);

// The algorithm providers are opened once and kept for the life of the process: opening one is
// slow, and CNG lets threads share them (only their properties must not change meanwhile, and
// they are set before anyone sees them).
struct Providers {
  BCRYPT_ALG_HANDLE aes_gcm = nullptr;
  BCRYPT_ALG_HANDLE hmac_sha256 = nullptr;
  ULONG key_object_size = 0;

  Providers() {
    ULONG got = 0;
    if (!succeeded(BCryptOpenAlgorithmProvider(&aes_gcm, BCRYPT_AES_ALGORITHM, nullptr, 0)) ||
        !succeeded(BCryptSetProperty(aes_gcm, BCRYPT_CHAINING_MODE,
                                     reinterpret_cast<PUCHAR>(const_cast<wchar_t*>(BCRYPT_CHAIN_MODE_GCM)),
                                     sizeof BCRYPT_CHAIN_MODE_GCM, 0)) ||
        !succeeded(BCryptGetProperty(aes_gcm, BCRYPT_OBJECT_LENGTH, reinterpret_cast<PUCHAR>(&key_object_size),
                                     sizeof key_object_size, &got, 0))) {
      key_object_size = 0;
    }
    if (!succeeded(BCryptOpenAlgorithmProvider(&hmac_sha256, BCRYPT_SHA256_ALGORITHM, nullptr,
                                               BCRYPT_ALG_HANDLE_HMAC_FLAG))) {
      hmac_sha256 = nullptr;
    }
  }
};

const Providers& providers() {
  static const Providers opened;
  return opened;
}

// CNG takes non-const pointers to inputs it only reads; an empty buffer still gets a valid
// address (a null output asks for the output's size instead of doing the work).
PUCHAR bytes(const std::uint8_t* data) {
  static std::uint8_t nothing;
  return const_cast<PUCHAR>(data ? data : &nothing);
}

}  // namespace

bool pbkdf2HmacSha256(std::string_view password, const std::uint8_t* salt, std::size_t salt_size,
                      std::uint32_t iterations, std::uint8_t* key, std::size_t key_size) {
  BCRYPT_ALG_HANDLE hmac = providers().hmac_sha256;
  if (!hmac || password.size() > ULONG_MAX || salt_size > ULONG_MAX || key_size > ULONG_MAX ||
      iterations > kLargestPbkdf2Iterations) {
    return false;
  }
  // CNG refuses a count of 0.
  ULONGLONG rounds = iterations == 0 ? 1 : iterations;
  return succeeded(BCryptDeriveKeyPBKDF2(hmac, bytes(reinterpret_cast<const std::uint8_t*>(password.data())),
                                         static_cast<ULONG>(password.size()), bytes(salt),
                                         static_cast<ULONG>(salt_size), rounds, key, static_cast<ULONG>(key_size), 0));
}

namespace {

// One GCM operation as CNG runs it: the calls before the last are chained, each a whole number
// of blocks; the additional data goes with the first call, and the last call (without the chain
// flag) computes the tag, or checks it when decrypting.
struct GcmOperation {
  bool encrypting = false;
  BCRYPT_KEY_HANDLE key = nullptr;
  std::vector<UCHAR> key_object;  // the key schedule, in memory of our own so it can be wiped
  UCHAR nonce[kGcmNonceSize] = {};
  UCHAR tag[kGcmTagSize] = {};  // the expected tag when decrypting, the computed one when encrypting
  UCHAR mac_context[kGcmTagSize] = {};  // where CNG keeps the running tag between chained calls
  // Chained calls get a block-sized vector, as they are known to work with one; a single call
  // gets none.
  UCHAR chain_vector[kBlock] = {};
  std::vector<UCHAR> aad;  // given to the first call
  BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info;
  bool data_seen = false;  // additional data is refused after the first piece
  bool calls_made = false;
  bool finished = false;
  // The end of the input so far, not yet decrypted: a chained call takes only whole blocks, and
  // the final call needs some bytes of its own.
  UCHAR held[kBlock] = {};
  std::size_t held_size = 0;

  GcmOperation() = default;
  GcmOperation(const GcmOperation&) = delete;
  GcmOperation& operator=(const GcmOperation&) = delete;
  ~GcmOperation() {
    if (key) BCryptDestroyKey(key);
    if (!key_object.empty()) SecureZeroMemory(key_object.data(), key_object.size());
  }

  bool start(const std::uint8_t* secret, const std::uint8_t* nonce_bytes, bool encrypt) {
    encrypting = encrypt;
    const Providers& p = providers();
    if (!p.aes_gcm || p.key_object_size == 0) return false;
    key_object.resize(p.key_object_size);
    if (!succeeded(BCryptGenerateSymmetricKey(p.aes_gcm, &key, key_object.data(), p.key_object_size,
                                              bytes(secret), static_cast<ULONG>(kAes256KeySize), 0))) {
      key = nullptr;
      return false;
    }
    std::memcpy(nonce, nonce_bytes, sizeof nonce);
    BCRYPT_INIT_AUTH_MODE_INFO(info);
    info.pbNonce = nonce;
    info.cbNonce = static_cast<ULONG>(sizeof nonce);
    info.pbTag = tag;
    info.cbTag = static_cast<ULONG>(sizeof tag);
    info.pbMacContext = mac_context;
    info.cbMacContext = static_cast<ULONG>(sizeof mac_context);
    return true;
  }

  bool usable() const { return key && !finished; }

  // One call of at most kLargestCall bytes; output may be the input itself.
  NTSTATUS call(const UCHAR* input, std::size_t size, UCHAR* output, bool last) {
    bool alone = last && !calls_made;
    info.pbAuthData = calls_made || aad.empty() ? nullptr : aad.data();
    info.cbAuthData = calls_made ? 0 : static_cast<ULONG>(aad.size());
    if (last) {
      info.dwFlags &= ~BCRYPT_AUTH_MODE_CHAIN_CALLS_FLAG;
    } else {
      info.dwFlags |= BCRYPT_AUTH_MODE_CHAIN_CALLS_FLAG;
    }
    calls_made = true;
    UCHAR nothing = 0;
    PUCHAR in = size ? const_cast<PUCHAR>(input) : &nothing;
    PUCHAR out = size ? output : &nothing;
    PUCHAR vector = alone ? nullptr : chain_vector;
    ULONG vector_size = alone ? 0 : static_cast<ULONG>(sizeof chain_vector);
    ULONG count = static_cast<ULONG>(size);
    ULONG done = 0;
    NTSTATUS status = encrypting ? BCryptEncrypt(key, in, count, &info, vector, vector_size, out, count, &done, 0)
                                 : BCryptDecrypt(key, in, count, &info, vector, vector_size, out, count, &done, 0);
    if (succeeded(status) && done != count) return kUnsuccessful;
    return status;
  }

  // size bytes in calls CNG accepts: all chained unless last, and then the final call has the
  // rest (all of it when it fits one call).
  NTSTATUS run(const UCHAR* input, std::size_t size, UCHAR* output, bool last) {
    while (last ? size > kLargestFinalCall : size != 0) {
      std::size_t step = size > kLargestCall ? kLargestCall : size;
      NTSTATUS status = call(input, step, output, false);
      if (!succeeded(status)) return status;
      input += step;
      output += step;
      size -= step;
    }
    return last ? call(input, size, output, true) : kSuccess;
  }

  // Takes input into the held block until it is whole or the input is used up; the count taken.
  std::size_t fillHeld(const UCHAR* input, std::size_t size) {
    std::size_t take = kBlock - held_size < size ? kBlock - held_size : size;
    if (take != 0) std::memcpy(held + held_size, input, take);
    held_size += take;
    return take;
  }

  // The whole held block, known by now not to be the last, goes out first.
  NTSTATUS flushHeld(UCHAR*& output, std::size_t* produced) {
    UCHAR plain[kBlock];
    NTSTATUS status = call(held, kBlock, plain, false);
    if (!succeeded(status)) return status;
    std::memcpy(output, plain, kBlock);
    output += kBlock;
    *produced += kBlock;
    held_size = 0;
    return status;
  }

  // A piece that is not the last, in chained calls; adds the bytes written to *produced.
  bool chainPiece(const UCHAR* input, std::size_t size, UCHAR* output, std::size_t* produced) {
    // Output trails the input by the bytes held: writing the held block's plaintext only covers
    // input already taken, so in place stays in place.
    if (held_size != 0 && held_size < kBlock) {
      std::size_t taken = fillHeld(input, size);
      input += taken;
      size -= taken;
    }
    if (size == 0) return true;
    if (held_size == kBlock && !succeeded(flushHeld(output, produced))) return false;
    // The last 1 to 16 bytes wait for the next piece or the final call.
    std::size_t body = (size - 1) / kBlock * kBlock;
    if (!succeeded(run(input, body, output, false))) return false;
    *produced += body;
    fillHeld(input + body, size - body);
    return true;
  }

  // The last piece after chained ones (or alone), with the final call; adds the bytes written.
  NTSTATUS chainLast(const UCHAR* input, std::size_t size, UCHAR* output, std::size_t* produced) {
    if (held_size != 0) {
      std::size_t taken = fillHeld(input, size);
      input += taken;
      size -= taken;
      if (size == 0) {
        // All that is left is in the held block: the final call decrypts it there.
        UCHAR plain[kBlock];
        NTSTATUS status = call(held, held_size, plain, true);
        if (succeeded(status)) {
          std::memcpy(output, plain, held_size);
          *produced += held_size;
        }
        return status;
      }
      NTSTATUS status = flushHeld(output, produced);
      if (!succeeded(status)) return status;
    }
    NTSTATUS status = run(input, size, output, true);
    if (succeeded(status)) *produced += size;
    return status;
  }
};

GcmResult resultOf(NTSTATUS status) {
  if (status == kAuthTagMismatch) return GcmResult::kTagMismatch;
  return succeeded(status) ? GcmResult::kAuthentic : GcmResult::kFailed;
}

}  // namespace

// Pieces decrypted in place, each right after the one before, are put off and decrypted with
// the last one in a single call. That is how the program decrypts a container it holds in
// memory, and one call is the simplest way for it; it is also the only way Wine's bcrypt (our
// Windows test bed) gets right, as it ignores the chaining flag. Anything else (a piece from
// elsewhere, or more than one call can take) goes through chained calls, which need Windows itself.
struct GcmDecryption::State : GcmOperation {
  bool deferring = true;
  UCHAR* deferred = nullptr;  // the first piece put off, where its plaintext goes too
  std::size_t deferred_size = 0;

  // Whether the piece continues what was put off, in place, and all of it still fits one call.
  bool continuesDeferred(const UCHAR* input, std::size_t size, const UCHAR* output) const {
    if (deferred_size == 0) return input == output;
    // Nothing was written meanwhile, so the caller's output is still where the first piece began.
    return output == deferred && (size == 0 || input == deferred + deferred_size);
  }
  bool fitsOneCall(std::size_t size) const { return size <= kLargestFinalCall - deferred_size; }

  // Chained calls from here on, starting with what was put off; its plaintext goes to output,
  // which is moved past what was written.
  bool stopDeferring(UCHAR*& output, std::size_t* produced) {
    deferring = false;
    std::size_t before = *produced;
    if (deferred_size != 0 && !chainPiece(deferred, deferred_size, output, produced)) return false;
    output += *produced - before;
    deferred_size = 0;
    return true;
  }
};

GcmDecryption::GcmDecryption() : state_(std::make_unique<State>()) {}

GcmDecryption::~GcmDecryption() = default;

bool GcmDecryption::start(const std::uint8_t key[kAes256KeySize], const std::uint8_t nonce[kGcmNonceSize]) {
  return state_ && !state_->key && state_->start(key, nonce, false);
}

bool GcmDecryption::addAuthenticatedData(const std::uint8_t* data, std::size_t size) {
  if (!state_ || !state_->usable() || state_->data_seen || size > ULONG_MAX - state_->aad.size()) {
    return false;
  }
  state_->aad.insert(state_->aad.end(), data, data + size);
  return true;
}

bool GcmDecryption::update(const std::uint8_t* input, std::size_t size, std::uint8_t* output, std::size_t* produced) {
  *produced = 0;
  if (!state_ || !state_->usable()) return false;
  State& s = *state_;
  s.data_seen = true;
  if (size == 0) return true;
  if (s.deferring) {
    if (s.continuesDeferred(input, size, output) && s.fitsOneCall(size)) {
      if (s.deferred_size == 0) s.deferred = output;
      s.deferred_size += size;
      return true;
    }
    if (!s.stopDeferring(output, produced)) return false;
  }
  return s.chainPiece(input, size, output, produced);
}

GcmResult GcmDecryption::finish(const std::uint8_t* input, std::size_t size, std::uint8_t* output,
                                std::size_t* produced, const std::uint8_t tag[kGcmTagSize]) {
  *produced = 0;
  if (!state_ || !state_->usable()) return GcmResult::kFailed;
  State& s = *state_;
  s.finished = true;
  std::memcpy(s.tag, tag, kGcmTagSize);
  if (s.deferring && s.deferred_size != 0) {
    if (s.continuesDeferred(input, size, output) && s.fitsOneCall(size)) {
      std::size_t total = s.deferred_size + size;
      NTSTATUS status = s.call(s.deferred, total, s.deferred, true);
      if (succeeded(status)) *produced = total;
      return resultOf(status);
    }
    if (!s.stopDeferring(output, produced)) return GcmResult::kFailed;
  }
  return resultOf(s.chainLast(input, size, output, produced));
}

bool gcmEncrypt(const std::uint8_t key[kAes256KeySize], const std::uint8_t nonce[kGcmNonceSize],
                const std::uint8_t* aad, std::size_t aad_size, const std::uint8_t* plain, std::size_t size,
                std::uint8_t* cipher, std::uint8_t tag[kGcmTagSize]) {
  GcmOperation s;
  if (aad_size > ULONG_MAX || !s.start(key, nonce, true)) return false;
  s.aad.assign(aad, aad + aad_size);
  if (!succeeded(s.run(plain, size, cipher, true))) return false;
  std::memcpy(tag, s.tag, kGcmTagSize);
  return true;
}

}  // namespace qm
