#include "container/container_header.h"

#include <gtest/gtest.h>

#include "tests/support/counting_stream.h"
#include "tests/support/container_writer.h"

namespace qm {
namespace {

TEST(ContainerHeader, ReadsEveryFieldAndDeviceIdBigEndian) {
  auto stream = test::memoryStreamOf(test::makeContainerHeader(kContainerEncrypted, 1, 123456) + "rest");
  stream->seek(7, kSeekSet);  // detection starts at 0 wherever the stream stands
  ContainerHeader header{};
  ASSERT_EQ(detectContainer(stream.get(), &header), 1);
  EXPECT_EQ(header.device_id, 123456u);  // bytes 00 01 E2 40
  EXPECT_EQ(header.container_type, kContainerEncrypted);
  EXPECT_EQ(header.type_version, 1);
  EXPECT_EQ(header.byte_a, 1);
  EXPECT_EQ(header.byte_b, 0);
  EXPECT_EQ(std::string(header.signature, 12), "Generic File");
}

TEST(ContainerHeader, DetectionChecksTheSignatureOnly) {
  ContainerHeader header{};
  auto unknown_type = test::memoryStreamOf(test::makeContainerHeader(99, 7, 1));
  EXPECT_EQ(detectContainer(unknown_type.get(), &header), 1);
  EXPECT_EQ(header.container_type, 99);

  std::string other = test::makeContainerHeader(34, 1, 1);
  other[11] = 'x';
  EXPECT_EQ(detectContainer(test::memoryStreamOf(other).get(), &header), 0);
  auto plain = test::memoryStreamOf(std::string("UnFinMF ") + std::string(60, '\0'));
  EXPECT_EQ(detectContainer(plain.get(), &header), 0);
}

TEST(ContainerHeader, ShortOrMissingStreamsAreNoContainer) {
  ContainerHeader header{};
  std::string nineteen = test::makeContainerHeader(34, 1, 1).substr(0, 19);
  EXPECT_EQ(detectContainer(test::memoryStreamOf(nineteen).get(), &header), 0);
  EXPECT_EQ(detectContainer(test::memoryStreamOf("").get(), &header), 0);
}

}  // namespace
}  // namespace qm
