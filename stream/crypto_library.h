#pragma once
// libcrypto, loaded the first time an encrypted container needs it rather than when the program
// starts: loading and relocating it costs about as much as the rest of start-up together, which
// a run over plain or compressed files would pay for nothing. Only container_crypto.cpp uses it.
#include <openssl/crypto.h>
#include <openssl/evp.h>

namespace qm {

// The library functions the containers use, typed as the headers declare them.
struct CryptoLibrary {
  decltype(&::PKCS5_PBKDF2_HMAC) pbkdf2_hmac;
  decltype(&::EVP_sha256) sha256;
  decltype(&::EVP_aes_256_gcm) aes_256_gcm;
  decltype(&::EVP_CIPHER_CTX_new) cipher_context_new;
  decltype(&::EVP_CIPHER_CTX_free) cipher_context_free;
  decltype(&::EVP_CIPHER_CTX_ctrl) cipher_context_ctrl;
  decltype(&::EVP_DecryptInit_ex) decrypt_init;
  decltype(&::EVP_DecryptUpdate) decrypt_update;
  decltype(&::EVP_DecryptFinal_ex) decrypt_final;
  decltype(&::EVP_EncryptInit_ex) encrypt_init;
  decltype(&::EVP_EncryptUpdate) encrypt_update;
  decltype(&::EVP_EncryptFinal_ex) encrypt_final;
};

// Loads the library of that file name and finds every function; false, with *library untouched,
// when the library or one of the functions is missing. The library stays loaded for good.
bool loadCryptoLibrary(const char* file_name, CryptoLibrary* library);

// The installed library, loaded once on first call (safe from any thread); null when it is
// missing, so that only encrypted containers fail.
const CryptoLibrary* cryptoLibrary();

}  // namespace qm
