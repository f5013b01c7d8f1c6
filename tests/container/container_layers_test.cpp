// Peeling nested containers the way the conversion does: detect, build the layer, repeat.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "stream/buffered_stream.h"
#include "container/compressed_stream.h"
#include "container/encrypted_stream.h"
#include "tests/support/counting_stream.h"
#include "tests/support/container_writer.h"

namespace qm {
namespace {

struct Unwrapped {
  std::vector<int> layers;  // container types in the order found
  std::string content;
};

Unwrapped unwrap(const std::string& file, std::string_view password, Failure* why = nullptr) {
  Unwrapped result;
  std::unique_ptr<Stream> current = BufferedStream::create(test::memoryStreamOf(file), file.size());
  ContainerHeader header{};
  while (current && detectContainer(current.get(), &header) == 1) {
    result.layers.push_back(header.container_type);
    if (header.container_type == kContainerCompressed) {
      current = openCompressed(std::move(current), header, why);
    } else if (header.container_type == kContainerEncrypted) {
      current = openEncrypted(std::move(current), header, password, why);
    } else {
      current.reset();
    }
  }
  if (!current) return {result.layers, "<failed>"};
  current->seek(0, kSeekSet);
  result.content = test::readRest(current.get());
  return result;
}

// A refused layer says why, so that the conversion can tell the user.
TEST(ContainerLayers, RefusedLayersSayWhy) {
  const std::string mdf = "MDF     payload";
  std::string encrypted = test::makeEncryptedContainer(mdf, 0x1A2B, "pw", 2);
  std::string flipped = encrypted;
  flipped[flipped.size() / 2] ^= 1;
  struct Case {
    std::string file;
    std::string password;
    FailureReason reason;
  };
  const Case cases[] = {
      {encrypted, "wrong", FailureReason::kWrongPasswordOrDamaged},
      {flipped, "pw", FailureReason::kWrongPasswordOrDamaged},
      {encrypted.substr(0, 60), "pw", FailureReason::kContainerMalformed},
      {test::makeCompressedPrefix(1, 4, 1 << 20), "", FailureReason::kContainerMalformed},  // window too wide
  };
  for (const Case& c : cases) {
    Failure why;
    EXPECT_EQ(unwrap(c.file, c.password, &why).content, "<failed>");
    EXPECT_EQ(why.reason, c.reason) << describeFailure(why).c_str();
  }
  Failure none;
  EXPECT_EQ(unwrap(encrypted, "pw", &none).content, mdf);
  EXPECT_FALSE(none);
}

TEST(ContainerLayers, NestedContainersUnwrapInTheOrderFound) {
  std::string mdf = "UnFinMF " + std::string(2000, 'm');
  auto compressed_in_encrypted =
      test::makeEncryptedContainer(test::makeCompressedContainer(mdf, 3, 10, 5), 0x1A2B, "pw", 2);
  Unwrapped a = unwrap(compressed_in_encrypted, "pw");
  EXPECT_EQ(a.layers, (std::vector<int>{kContainerEncrypted, kContainerCompressed}));
  EXPECT_EQ(a.content, mdf);

  auto encrypted_in_compressed =
      test::makeCompressedContainer(test::makeEncryptedContainer(mdf, 0x1A2B, "pw", 2), 3, 12, 4);
  Unwrapped b = unwrap(encrypted_in_compressed, "pw");
  EXPECT_EQ(b.layers, (std::vector<int>{kContainerCompressed, kContainerEncrypted}));
  EXPECT_EQ(b.content, mdf);

  auto twice = test::makeCompressedContainer(test::makeCompressedContainer(mdf, 1, 8, 4), 2, 15, 14);
  EXPECT_EQ(unwrap(twice, "").content, mdf);
  EXPECT_EQ(unwrap(compressed_in_encrypted, "other").content, "<failed>");
}

}  // namespace
}  // namespace qm
