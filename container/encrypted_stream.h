#pragma once
// The layer over an encrypted container (type 17): AES-256-GCM under a key derived from the
// device's password with PBKDF2-HMAC-SHA-256. The payload is authenticated and decrypted into
// memory when the layer is built; the layer is then a stream over the plaintext.
//
// Layout after the 20-byte header: 12-byte nonce, iteration count (big-endian 32-bit), 16-byte
// salt, ciphertext, 16-byte tag. The first 52 bytes are authenticated along with the payload.
#include <cstdint>
#include <memory>
#include <string_view>

#include "base/failure.h"
#include "container/container_header.h"
#include "stream/memory_stream.h"
#include "stream/stream.h"

namespace qm {

inline constexpr std::size_t kEncryptedNonceSize = 12;
inline constexpr std::size_t kEncryptedSaltSize = 16;
inline constexpr std::size_t kEncryptedTagSize = 16;
inline constexpr std::size_t kEncryptedAadSize = 52;
inline constexpr std::int64_t kEncryptedMinimumSize = kEncryptedAadSize + kEncryptedTagSize;

class EncryptedStream : public Stream {
 public:
  explicit EncryptedStream(const ContainerHeader& header) : header_(header) {}

  std::int64_t read(void* buffer, std::size_t count) override;
  std::int64_t write(const void* buffer, std::size_t count) override;
  std::int64_t tell() override;
  std::int64_t seek(std::int64_t offset, int origin) override;
  // Releases the plaintext; fails too when closing the container beneath failed. The layer
  // stays, empty.
  int close() override;
  ByteView contents() override { return content_ ? content_->contents() : ByteView{}; }

  const ContainerHeader& header() const { return header_; }
  MemoryStream* content() { return content_.get(); }
  void noteInnerCloseFailed() { inner_close_failed_ = true; }

 private:
  ContainerHeader header_;
  bool inner_close_failed_ = false;
  std::unique_ptr<MemoryStream> content_ = std::make_unique<MemoryStream>();
};

// Builds the layer, or null on any failure, whose reason goes to `why` when given. Nothing is
// returned unless the tag matches. Like every layer it consumes the stream beneath it, also when
// it fails; as the plaintext is all in memory, that stream is closed before this returns. The
// result is positioned at the end of its content.
std::unique_ptr<Stream> openEncrypted(std::unique_ptr<Stream> inner, const ContainerHeader& header,
                                      std::string_view password, Failure* why = nullptr);

}  // namespace qm
