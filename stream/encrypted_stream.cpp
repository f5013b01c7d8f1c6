#include "stream/encrypted_stream.h"

#include <mbedtls/cipher.h>
#include <mbedtls/platform_util.h>

#include "stream/container_key.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

constexpr std::size_t kCipherChunk = 512;

struct ContainerSecrets {
  std::uint8_t nonce[kEncryptedNonceSize];
  std::uint32_t iterations;
  std::uint8_t salt[kEncryptedSaltSize];
};

bool readSecrets(Stream* inner, ContainerSecrets* secrets) {
  streamSeek(inner, kContainerHeaderSize, kSeekSet);
  StreamReader reader(inner);
  return reader.readBytes(secrets->nonce, sizeof secrets->nonce) &&
         reader.readU32BigEndian(secrets->iterations) &&
         reader.readBytes(secrets->salt, sizeof secrets->salt);
}

// Reads until the buffer is full or the stream has nothing more, so that every chunk but the
// last reaches the cipher whole.
std::int64_t readFully(Stream* inner, std::uint8_t* buffer, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    std::int64_t n = inner->read(buffer + done, count - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

// AES-256-GCM decryption; the context is freed whichever way the work ends.
class GcmDecryption {
 public:
  GcmDecryption() { mbedtls_cipher_init(&context_); }
  ~GcmDecryption() { mbedtls_cipher_free(&context_); }
  GcmDecryption(const GcmDecryption&) = delete;
  GcmDecryption& operator=(const GcmDecryption&) = delete;

  bool start(const std::uint8_t key[kContainerKeySize], const std::uint8_t* nonce) {
    const mbedtls_cipher_info_t* info = mbedtls_cipher_info_from_type(MBEDTLS_CIPHER_AES_256_GCM);
    return info && mbedtls_cipher_setup(&context_, info) == 0 &&
           mbedtls_cipher_setkey(&context_, key, 256, MBEDTLS_DECRYPT) == 0 &&
           mbedtls_cipher_set_iv(&context_, nonce, kEncryptedNonceSize) == 0;
  }
  bool addAuthenticatedData(const std::uint8_t* data, std::size_t size) {
    return mbedtls_cipher_update_ad(&context_, data, size) == 0;
  }
  bool update(const std::uint8_t* input, std::size_t size, std::uint8_t* output, std::size_t* produced) {
    return mbedtls_cipher_update(&context_, input, size, output, produced) == 0;
  }
  bool finish(std::uint8_t* output, std::size_t* produced) {
    return mbedtls_cipher_finish(&context_, output, produced) == 0;
  }
  bool tagMatches(const std::uint8_t* tag) {
    return mbedtls_cipher_check_tag(&context_, tag, kEncryptedTagSize) == 0;
  }

 private:
  mbedtls_cipher_context_t context_;
};

bool writeAll(MemoryStream* target, const std::uint8_t* data, std::size_t size) {
  return size == 0 || target->write(data, size) == static_cast<std::int64_t>(size);
}

bool decryptPayload(Stream* inner, std::int64_t file_size, GcmDecryption* gcm, MemoryStream* plain) {
  std::uint8_t tag[kEncryptedTagSize];
  streamSeek(inner, 0, kSeekEnd);
  if (streamTell(inner) != file_size) return false;
  streamSeek(inner, -static_cast<std::int64_t>(kEncryptedTagSize), kSeekCur);
  if (readFully(inner, tag, sizeof tag) != static_cast<std::int64_t>(sizeof tag)) return false;

  std::uint8_t chunk[kCipherChunk];
  std::uint8_t out[kCipherChunk + 16];
  streamSeek(inner, 0, kSeekSet);
  if (readFully(inner, chunk, kEncryptedAadSize) != static_cast<std::int64_t>(kEncryptedAadSize) ||
      !gcm->addAuthenticatedData(chunk, kEncryptedAadSize)) {
    return false;
  }
  std::uint64_t remaining = static_cast<std::uint64_t>(file_size - kEncryptedMinimumSize);
  if (!plain->reserve(remaining)) return false;
  while (remaining != 0) {
    std::size_t want = remaining < kCipherChunk ? static_cast<std::size_t>(remaining) : kCipherChunk;
    std::int64_t n = readFully(inner, chunk, want);
    if (n <= 0) return false;
    remaining -= static_cast<std::uint64_t>(n);
    std::size_t produced = 0;
    if (!gcm->update(chunk, static_cast<std::size_t>(n), out, &produced) ||
        !writeAll(plain, out, produced)) {
      return false;
    }
  }
  std::size_t produced = 0;
  if (!gcm->finish(out, &produced) || !writeAll(plain, out, produced)) return false;
  return gcm->tagMatches(tag);
}

}  // namespace

std::int64_t EncryptedStream::read(void* buffer, std::size_t count) {
  return streamRead(content_.get(), buffer, count);
}

std::int64_t EncryptedStream::write(const void* buffer, std::size_t count) {
  return streamWrite(content_.get(), buffer, count);
}

std::int64_t EncryptedStream::tell() { return streamTell(content_.get()); }

std::int64_t EncryptedStream::seek(std::int64_t offset, int origin) {
  return streamSeek(content_.get(), offset, origin);
}

int EncryptedStream::close() {
  int status = streamClose(content_.get());
  content_.reset();
  return status;
}

std::unique_ptr<Stream> openEncrypted(Stream* inner, const ContainerHeader& header,
                                      std::string_view password) {
  if (!inner || header.container_type != kContainerEncrypted ||
      header.type_version != kContainerVersion) {
    return nullptr;
  }
  ContainerSecrets secrets;
  if (!readSecrets(inner, &secrets)) return nullptr;
  // Checked before the (possibly slow) key derivation: a shorter file has no room for a tag.
  std::int64_t file_size = streamSize(inner);
  if (file_size < kEncryptedMinimumSize) return nullptr;

  auto layer = std::make_unique<EncryptedStream>(header);
  std::uint8_t key[kContainerKeySize];
  if (!deriveContainerKey(password, secrets.salt, sizeof secrets.salt, secrets.iterations, key)) {
    return nullptr;
  }
  GcmDecryption gcm;
  bool started = gcm.start(key, secrets.nonce);
  mbedtls_platform_zeroize(key, sizeof key);  // the cipher keeps its own copy
  if (!started) return nullptr;
  if (!decryptPayload(inner, file_size, &gcm, layer->content())) return nullptr;
  return layer;
}

}  // namespace qm
