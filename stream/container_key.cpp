#include "stream/container_key.h"

#include <mbedtls/md.h>
#include <mbedtls/pkcs5.h>
#include <mbedtls/version.h>

namespace qm {

bool deriveContainerKey(std::string_view password, const std::uint8_t* salt, std::size_t salt_size,
                        std::uint32_t iterations, std::uint8_t key[kContainerKeySize]) {
  const auto* pw = reinterpret_cast<const unsigned char*>(password.data());
#if MBEDTLS_VERSION_NUMBER >= 0x03030000
  return mbedtls_pkcs5_pbkdf2_hmac_ext(MBEDTLS_MD_SHA256, pw, password.size(), salt, salt_size,
                                       iterations, kContainerKeySize, key) == 0;
#else
  const mbedtls_md_info_t* sha256 = mbedtls_md_info_from_type(MBEDTLS_MD_SHA256);
  if (!sha256) return false;
  mbedtls_md_context_t md;
  mbedtls_md_init(&md);
  bool derived = mbedtls_md_setup(&md, sha256, 1) == 0 &&
                 mbedtls_pkcs5_pbkdf2_hmac(&md, pw, password.size(), salt, salt_size, iterations,
                                           kContainerKeySize, key) == 0;
  mbedtls_md_free(&md);
  return derived;
#endif
}

}  // namespace qm
