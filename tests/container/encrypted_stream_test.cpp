#include "container/encrypted_stream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "stream/buffered_stream.h"
#include "stream/file_stream.h"
#include "tests/support/counting_stream.h"
#include "tests/support/container_writer.h"
#include "tests/support/temp_dir.h"

namespace qm {
namespace {

// Decrypts the container `inner` holds; "<refused>" when the layer is not built.
std::string decryptFrom(std::unique_ptr<Stream> inner, std::string_view password) {
  ContainerHeader header{};
  if (!inner || detectContainer(inner.get(), &header) != 1) return "<no container>";
  auto layer = openEncrypted(std::move(inner), header, password);
  if (!layer) return "<refused>";
  layer->seek(0, kSeekSet);
  return test::readRest(layer.get());
}

std::string decrypt(const std::string& container, std::string_view password) {
  return decryptFrom(test::memoryStreamOf(container), password);
}

// A stream whose bytes are reachable only by reading, as a file read without a whole-file buffer.
class ReadOnlyMemory : public MemoryStream {
 public:
  ByteView contents() override { return {}; }
};

std::string decryptByReading(const std::string& container, std::string_view password) {
  auto inner = std::make_unique<ReadOnlyMemory>();
  inner->write(container.data(), container.size());
  return decryptFrom(std::move(inner), password);
}

// Decrypts a container written to a file, read straight from it or through a whole-file buffer
// (which maps it).
std::string decryptFile(const std::string& container, std::string_view password, bool whole_file_buffer) {
  test::TempDir dir;
  test::writeFile(dir / "c.MFE", container);
  std::unique_ptr<Stream> inner = FileStream::open((dir / "c.MFE").c_str(), kFileRead);
  if (whole_file_buffer) inner = BufferedStream::create(std::move(inner), container.size());
  return decryptFrom(std::move(inner), password);
}

TEST(EncryptedStream, DecryptsAContainerSealedByAnIndependentImplementation) {
  // Device 1A2B3C4D, nonce 00..0B, 3 iterations, salt 64..73, password "logger secret".
  const std::string container(
      "\x47\x65\x6e\x65\x72\x69\x63\x20\x46\x69\x6c\x65\x01\x00\x11\x01\x1a\x2b\x3c\x4d\x00\x01\x02\x03"
      "\x04\x05\x06\x07\x08\x09\x0a\x0b\x00\x00\x00\x03\x64\x65\x66\x67\x68\x69\x6a\x6b\x6c\x6d\x6e\x6f"
      "\x70\x71\x72\x73\x88\xbb\xf2\xd7\x92\xd7\x71\x60\xad\xe5\x47\x5a\xa5\x51\x80\x16\x2c\x7c\x8a\x3a"
      "\xab\xf0\x26\xb0\x1b\x01\x52\xcf\x98\x23\x3d\x79\x41\x9e\x5e\x18\x0b\xdb\x46\xf0\xb0\x1c\x58\xb1"
      "\xbf\xc2\xe7\x79\x66\x74\x49\x13\x23",
      105);
  const std::string expected = "a payload of 37 bytes, not 16-aligned";
  EXPECT_EQ(decrypt(container, "logger secret"), expected);
  EXPECT_EQ(decryptByReading(container, "logger secret"), expected);
  // The writer the tests use agrees with it byte for byte.
  EXPECT_EQ(test::makeEncryptedContainer(expected, 0x1A2B3C4D, "logger secret", 3).size(), container.size());
}

// Read from a stream or a file, the container is decrypted piece by piece, the file's on a
// second thread: large enough for several pieces, a last one of odd length, and pages faulted in
// ahead. A changed byte in the last or a middle piece refuses it all.
TEST(EncryptedStream, ReadsPieceByPieceWhenTheContainerIsNotInMemory) {
  std::string payload = test::patternBytes((std::size_t{9} << 19) + 5);
  std::string container = test::makeEncryptedContainer(payload, 9, "pw", 2);
  std::string last_byte_changed = container;
  last_byte_changed[container.size() - 17] ^= 1;  // the ciphertext's last byte
  std::string middle_changed = container;
  middle_changed[container.size() / 2] ^= 1;
  const std::string empty = test::makeEncryptedContainer("", 9, "pw", 1);
  const std::function<std::string(const std::string&, std::string_view)> readers[] = {
      decryptByReading,
      [](const std::string& c, std::string_view password) { return decryptFile(c, password, false); },
      [](const std::string& c, std::string_view password) { return decryptFile(c, password, true); },
  };
  for (std::size_t i = 0; i < std::size(readers); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(readers[i](container, "pw"), payload);
    EXPECT_EQ(readers[i](container, "px"), "<refused>");
    EXPECT_EQ(readers[i](last_byte_changed, "pw"), "<refused>");
    EXPECT_EQ(readers[i](middle_changed, "pw"), "<refused>");
    EXPECT_EQ(readers[i](empty, "pw"), "");
  }
}

TEST(EncryptedStream, RoundTripsPayloadsOfManySizes) {
  for (std::size_t size : {0, 1, 15, 16, 17, 511, 512, 513, 1024, 70001}) {
    SCOPED_TRACE(size);
    std::string payload = test::patternBytes(size);
    EXPECT_EQ(decrypt(test::makeEncryptedContainer(payload, 0x1A2B, "secret", 3, 11), "secret"), payload);
  }
  // The iteration count is the file's, whatever it is.
  EXPECT_EQ(decrypt(test::makeEncryptedContainer("abc", 1, "pw", 1), "pw"), "abc");
}

TEST(EncryptedStream, AnyChangeOrWrongPasswordRefuses) {
  std::string container = test::makeEncryptedContainer(test::patternBytes(100), 0x1A2B, "secret", 1);
  EXPECT_EQ(decrypt(container, "secret!"), "<refused>");
  EXPECT_EQ(decrypt(container, ""), "<refused>");
  EXPECT_EQ(decrypt(container, "Secret"), "<refused>");
  // Bytes of the header, nonce, iteration count (its low byte: a high one would make the
  // derivation endless) and salt, then the ciphertext and the tag.
  for (std::size_t offset : {0, 11, 12, 13, 16, 19, 20, 31, 35, 36, 51, 52, 151, 167}) {
    SCOPED_TRACE(offset);
    std::string tampered = container;
    tampered[offset] ^= 0x10;
    EXPECT_NE(decrypt(tampered, "secret"), test::patternBytes(100));
  }
  std::string empty = test::makeEncryptedContainer("", 7, "pw", 1);  // 68 bytes, the tag right behind the salt
  empty[60] ^= 1;
  EXPECT_EQ(decrypt(empty, "pw"), "<refused>");
}

TEST(EncryptedStream, RefusalsBeforeTheKeyDerivation) {
  // An iteration count this large would take minutes; these come back at once.
  std::string container = test::makeEncryptedContainer("payload", 1, "pw", 1);
  container.replace(32, 4, "\xFF\xFF\xFF\xFF");
  ContainerHeader header{};
  ASSERT_EQ(detectContainer(test::memoryStreamOf(container).get(), &header), 1);
  ContainerHeader wrong_version = header;
  wrong_version.type_version = 0;
  EXPECT_EQ(openEncrypted(test::memoryStreamOf(container), wrong_version, "pw"), nullptr);
  ContainerHeader wrong_type = header;
  wrong_type.container_type = kContainerCompressed;
  EXPECT_EQ(openEncrypted(test::memoryStreamOf(container), wrong_type, "pw"), nullptr);
  EXPECT_EQ(openEncrypted(nullptr, header, "pw"), nullptr);
  // 67 bytes: no room for the tag after the 52 authenticated ones.
  std::string short_container = container.substr(0, 52) + std::string(15, '\0');
  EXPECT_EQ(openEncrypted(test::memoryStreamOf(short_container), header, "pw"), nullptr);
  EXPECT_EQ(openEncrypted(test::memoryStreamOf(container.substr(0, 40)), header, "pw"), nullptr);
}

TEST(EncryptedStream, ConsumesAndClosesTheInnerStream) {
  std::string container = test::makeEncryptedContainer("payload", 1, "pw", 1);
  for (const char* password : {"pw", "wrong"}) {
    test::StreamCalls calls;
    auto inner = test::countingStreamOf(container, &calls);
    ContainerHeader header{};
    ASSERT_EQ(detectContainer(inner.get(), &header), 1);
    auto layer = openEncrypted(std::move(inner), header, password);
    EXPECT_EQ(calls.closes, 1) << password;  // closed as soon as it is read, also on failure
    if (std::string_view(password) != "pw") {
      EXPECT_EQ(layer, nullptr);
      continue;
    }
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(layer->tell(), 7);  // left at the end of the plaintext
    layer->seek(0, kSeekSet);
    EXPECT_EQ(test::readRest(layer.get()), "payload");
    EXPECT_EQ(layer->close(), 0);
  }
}

}  // namespace
}  // namespace qm
