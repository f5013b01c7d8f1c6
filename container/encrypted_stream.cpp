#include "container/encrypted_stream.h"

#include <cstring>

#include "memory/large_buffer.h"
#include "memory/page_populator.h"
#include "memory/piece_filler.h"
#include "platform/crypto.h"
#include "platform/secret.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

static_assert(kEncryptedNonceSize == kGcmNonceSize && kEncryptedTagSize == kGcmTagSize);

// Large enough that the per-call cost vanishes, small enough that a piece copied in is still
// in the cache when it is decrypted in place.
constexpr std::size_t kCipherPiece = std::size_t{1} << 20;

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

// Reads until the buffer is full or the stream has nothing more.
std::uint64_t readFully(Stream* inner, std::uint8_t* buffer, std::uint64_t count) {
  std::uint64_t done = 0;
  while (done < count) {
    std::uint64_t want = count - done < kCipherPiece ? count - done : kCipherPiece;
    std::int64_t n = inner->read(buffer + done, static_cast<std::size_t>(want));
    if (n <= 0) break;
    done += static_cast<std::uint64_t>(n);
  }
  return done;
}

// The authenticated prefix, the ciphertext and the tag of a container, decrypted into `plain`
// (ciphertext length bytes). The ciphertext is copied into `plain` piece by piece and each
// piece decrypted there while it is still in the cache, the next ones being copied meanwhile:
// decrypting from one large block of memory straight into another takes twice as long.
class CipherSource {
 public:
  CipherSource(Stream* inner, std::int64_t file_size)
      : inner_(inner), file_size_(static_cast<std::uint64_t>(file_size)), memory_(inner->contents()) {
    if (memory_.size != file_size_) memory_ = {};
    std::uint8_t probe;
    // A file is read directly, even when it is mapped: the kernel copies from its cache faster
    // than a program reads through a fresh mapping.
    positional_ = inner->readAt(0, &probe, 0) == 0;
  }

  FailureReason decryptInto(GcmDecryption& gcm, std::uint8_t* plain) {
    std::uint8_t aad[kEncryptedAadSize];
    std::uint8_t tag[kEncryptedTagSize];
    if (!copyAt(0, aad, sizeof aad) || !copyAt(file_size_ - kEncryptedTagSize, tag, sizeof tag)) {
      return FailureReason::kEncryptedUnreadable;
    }
    if (!gcm.addAuthenticatedData(aad, sizeof aad)) return FailureReason::kCryptoFailed;
    std::uint64_t cipher_size = file_size_ - kEncryptedMinimumSize;
    // Fresh pages for the plaintext are faulted in ahead of the reads on a thread of their own.
    PagePopulator populator(plain, cipher_size);
    // Only the filling thread touches the inner stream from here on.
    PieceFiller filler(cipher_size, kCipherPiece, [this, plain](std::uint64_t offset, std::size_t count) {
      return copyAt(kEncryptedAadSize + offset, plain + offset, count);
    });
    // Pieces are decrypted where they were copied to. The crypto library may hold back a few
    // bytes of a piece and write them with the next one (on Windows, all of them until finish),
    // so the output has a position of its own, at or behind the input's; the last piece comes
    // with the tag check.
    std::uint64_t written = 0;
    std::size_t produced = 0;
    std::uint64_t done = 0;
    for (; done + kCipherPiece < cipher_size; done += kCipherPiece) {
      if (!filler.waitUntil(done + kCipherPiece)) return FailureReason::kEncryptedUnreadable;
      if (!gcm.update(plain + done, kCipherPiece, plain + written, &produced)) return FailureReason::kCryptoFailed;
      written += produced;
      populator.wrote(written);
    }
    if (!filler.waitUntil(cipher_size)) return FailureReason::kEncryptedUnreadable;
    GcmResult result =
        gcm.finish(plain + done, static_cast<std::size_t>(cipher_size - done), plain + written, &produced, tag);
    written += produced;
    populator.wrote(written);
    if (result == GcmResult::kTagMismatch) return FailureReason::kWrongPasswordOrDamaged;
    return result == GcmResult::kAuthentic && written == cipher_size ? FailureReason::kNone
                                                                     : FailureReason::kCryptoFailed;
  }

 private:
  bool copyAt(std::uint64_t offset, std::uint8_t* buffer, std::size_t count) {
    if (positional_) return inner_->readAt(offset, buffer, count) == static_cast<std::int64_t>(count);
    if (memory_.inMemory()) {
      std::memcpy(buffer, memory_.data + offset, count);
      return true;
    }
    return setPosition(inner_, static_cast<std::int64_t>(offset)) && readFully(inner_, buffer, count) == count;
  }

  Stream* inner_;  // borrowed
  std::uint64_t file_size_;
  ByteView memory_;
  bool positional_ = false;
};

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
  return inner_close_failed_ ? -1 : status;
}

namespace {

std::unique_ptr<EncryptedStream> decryptContainer(Stream* inner, const ContainerHeader& header,
                                                  std::string_view password, Failure* why) {
  Failure ignored;
  FailureReason& failure = (why ? *why : ignored).reason;
  failure = FailureReason::kContainerMalformed;
  if (!inner || header.container_type != kContainerEncrypted ||
      header.type_version != kContainerVersion) {
    return nullptr;
  }
  ContainerSecrets secrets;
  if (!readSecrets(inner, &secrets)) return nullptr;
  // Checked before the (possibly slow) key derivation: a shorter file has no room for a tag.
  std::int64_t file_size = streamSize(inner);
  if (file_size < kEncryptedMinimumSize) return nullptr;
  // The plaintext is as long as the ciphertext; one buffer of that size, so nothing is copied.
  std::uint64_t plain_size = static_cast<std::uint64_t>(file_size - kEncryptedMinimumSize);
  // Every byte is read in and decrypted before anyone sees it.
  LargeBuffer plain = allocateUninitialized(plain_size ? static_cast<std::size_t>(plain_size) : 1);
  if (!plain) {
    failure = FailureReason::kNoMemory;
    return nullptr;
  }

  std::uint8_t key[kAes256KeySize];
  bool derived = pbkdf2HmacSha256(password, secrets.salt, sizeof secrets.salt, secrets.iterations, key, sizeof key);
  GcmDecryption gcm;
  bool started = derived && gcm.start(key, secrets.nonce);
  wipeSecret(key, sizeof key);  // the cipher keeps its own schedule, wiped when it is freed
  if (!started) {
    failure = FailureReason::kCryptoFailed;
    return nullptr;
  }
  CipherSource source(inner, file_size);
  // Nothing decrypted leaves this function unless the tag matched.
  failure = source.decryptInto(gcm, plain.get());
  if (failure != FailureReason::kNone) return nullptr;
  auto layer = std::make_unique<EncryptedStream>(header);
  layer->content()->adopt(std::move(plain), plain_size, plain_size);
  return layer;
}

}  // namespace

std::unique_ptr<Stream> openEncrypted(std::unique_ptr<Stream> inner, const ContainerHeader& header,
                                      std::string_view password, Failure* why) {
  std::unique_ptr<EncryptedStream> layer = decryptContainer(inner.get(), header, password, why);
  // The plaintext is all in memory: the container is done with.
  const bool closed = !inner || inner->close() == 0;
  if (layer && !closed) layer->noteInnerCloseFailed();
  return layer;
}

}  // namespace qm
