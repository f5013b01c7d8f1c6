#include "stream/crypto_library.h"

#include <dlfcn.h>

#include "base/log.h"

#define QM_STRINGIFY_VALUE(value) #value
#define QM_STRINGIFY(value) QM_STRINGIFY_VALUE(value)

namespace qm {
namespace {

// The library of the major version whose headers this program was built against.
constexpr const char* kInstalledLibrary = "libcrypto.so." QM_STRINGIFY(OPENSSL_VERSION_MAJOR);

template <typename Function>
bool find(void* handle, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(handle, name));
  return *function != nullptr;
}

}  // namespace

bool loadCryptoLibrary(const char* file_name, CryptoLibrary* library) {
  void* handle = dlopen(file_name, RTLD_LAZY | RTLD_LOCAL);
  if (!handle) return false;
  CryptoLibrary found{};
  bool complete = find(handle, "PKCS5_PBKDF2_HMAC", &found.pbkdf2_hmac) && find(handle, "EVP_sha256", &found.sha256) &&
                  find(handle, "EVP_aes_256_gcm", &found.aes_256_gcm) &&
                  find(handle, "EVP_CIPHER_CTX_new", &found.cipher_context_new) &&
                  find(handle, "EVP_CIPHER_CTX_free", &found.cipher_context_free) &&
                  find(handle, "EVP_CIPHER_CTX_ctrl", &found.cipher_context_ctrl) &&
                  find(handle, "EVP_DecryptInit_ex", &found.decrypt_init) &&
                  find(handle, "EVP_DecryptUpdate", &found.decrypt_update) &&
                  find(handle, "EVP_DecryptFinal_ex", &found.decrypt_final) &&
                  find(handle, "EVP_EncryptInit_ex", &found.encrypt_init) &&
                  find(handle, "EVP_EncryptUpdate", &found.encrypt_update) &&
                  find(handle, "EVP_EncryptFinal_ex", &found.encrypt_final);
  // Never unloaded, even when incomplete: the library registers exit handlers of its own.
  if (complete) *library = found;
  return complete;
}

const CryptoLibrary* cryptoLibrary() {
  static const CryptoLibrary* const loaded = []() -> const CryptoLibrary* {
    static CryptoLibrary library;
    if (loadCryptoLibrary(kInstalledLibrary, &library)) return &library;
    // Said once: every encrypted container of the run fails for this one reason.
    const char* reason = dlerror();
    QM_LOG_E("Could not load %s for encrypted files: %s", kInstalledLibrary, reason ? reason : "functions missing");
    return nullptr;
  }();
  return loaded;
}

}  // namespace qm
