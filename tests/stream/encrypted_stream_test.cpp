#include "stream/encrypted_stream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "stream/container_key.h"
#include "tests/stream/counting_stream.h"
#include "tests/support/container_writer.h"

namespace qm {
namespace {

std::string payloadOf(std::size_t size) {
  std::string out(size, '\0');
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<char>(i * 31 + i / 7);
  return out;
}

// Decrypts a container held in memory; "<refused>" when the layer is not built.
std::string decrypt(const std::string& container, std::string_view password) {
  auto inner = test::memoryStreamOf(container);
  ContainerHeader header{};
  if (detectContainer(inner.get(), &header) != 1) return "<no container>";
  auto layer = openEncrypted(inner.get(), header, password);
  if (!layer) return "<refused>";
  layer->seek(0, kSeekSet);
  return test::readRest(layer.get());
}

TEST(EncryptedStream, DerivesTheKnownPbkdf2Sha256Key) {
  // Published PBKDF2-HMAC-SHA-256 vector: "passwd", salt "salt", 1 iteration.
  std::uint8_t key[kContainerKeySize];
  ASSERT_TRUE(deriveContainerKey("passwd", reinterpret_cast<const std::uint8_t*>("salt"), 4, 1, key));
  const std::uint8_t expected[8] = {0x55, 0xac, 0x04, 0x6e, 0x56, 0xe3, 0x08, 0x9f};
  EXPECT_EQ(std::memcmp(key, expected, sizeof expected), 0);
}

TEST(EncryptedStream, RoundTripsPayloadsOfManySizes) {
  for (std::size_t size : {0, 1, 15, 16, 17, 511, 512, 513, 1024, 70001}) {
    SCOPED_TRACE(size);
    std::string payload = payloadOf(size);
    EXPECT_EQ(decrypt(test::makeEncryptedContainer(payload, 0x1A2B, "secret", 3, 11), "secret"), payload);
  }
  // The iteration count is the file's, whatever it is.
  EXPECT_EQ(decrypt(test::makeEncryptedContainer("abc", 1, "pw", 1), "pw"), "abc");
}

TEST(EncryptedStream, ExactlySixtyEightBytesIsAnEmptyPayload) {
  std::string container = test::makeEncryptedContainer("", 7, "pw", 1);
  ASSERT_EQ(container.size(), 68u);
  EXPECT_EQ(decrypt(container, "pw"), "");
  container[60] ^= 1;  // the tag itself
  EXPECT_EQ(decrypt(container, "pw"), "<refused>");
}

TEST(EncryptedStream, AnyChangeOrWrongPasswordRefuses) {
  std::string container = test::makeEncryptedContainer(payloadOf(100), 0x1A2B, "secret", 1);
  EXPECT_EQ(decrypt(container, "secret!"), "<refused>");
  EXPECT_EQ(decrypt(container, ""), "<refused>");
  EXPECT_EQ(decrypt(container, "Secret"), "<refused>");
  // Bytes of the header, nonce, iteration count (its low byte: a high one would make the
  // derivation endless) and salt, then the ciphertext and the tag.
  for (std::size_t offset : {0, 11, 12, 13, 16, 19, 20, 31, 35, 36, 51, 52, 151, 167}) {
    SCOPED_TRACE(offset);
    std::string tampered = container;
    tampered[offset] ^= 0x10;
    EXPECT_NE(decrypt(tampered, "secret"), payloadOf(100));
  }
}

TEST(EncryptedStream, RefusalsBeforeTheKeyDerivation) {
  // An iteration count this large would take minutes; these come back at once.
  std::string container = test::makeEncryptedContainer("payload", 1, "pw", 1);
  container.replace(32, 4, "\xFF\xFF\xFF\xFF");
  ContainerHeader header{};
  ASSERT_EQ(detectContainer(test::memoryStreamOf(container).get(), &header), 1);
  ContainerHeader wrong_version = header;
  wrong_version.type_version = 0;
  EXPECT_EQ(openEncrypted(test::memoryStreamOf(container).get(), wrong_version, "pw"), nullptr);
  ContainerHeader wrong_type = header;
  wrong_type.container_type = kContainerCompressed;
  EXPECT_EQ(openEncrypted(test::memoryStreamOf(container).get(), wrong_type, "pw"), nullptr);
  EXPECT_EQ(openEncrypted(nullptr, header, "pw"), nullptr);
  // 67 bytes: no room for the tag after the 52 authenticated ones.
  std::string short_container = container.substr(0, 52) + std::string(15, '\0');
  EXPECT_EQ(openEncrypted(test::memoryStreamOf(short_container).get(), header, "pw"), nullptr);
  EXPECT_EQ(openEncrypted(test::memoryStreamOf(container.substr(0, 40)).get(), header, "pw"), nullptr);
}

TEST(EncryptedStream, BorrowsTheInnerStream) {
  std::string container = test::makeEncryptedContainer("payload", 1, "pw", 1);
  test::StreamCalls calls;
  auto inner = test::countingStreamOf(container, &calls);
  ContainerHeader header{};
  ASSERT_EQ(detectContainer(inner.get(), &header), 1);
  auto layer = openEncrypted(inner.get(), header, "pw");
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(calls.closes, 0);
  EXPECT_EQ(layer->tell(), 7);  // left at the end of the plaintext
  inner.reset();  // the layer no longer needs it
  layer->seek(0, kSeekSet);
  EXPECT_EQ(test::readRest(layer.get()), "payload");
}

}  // namespace
}  // namespace qm
