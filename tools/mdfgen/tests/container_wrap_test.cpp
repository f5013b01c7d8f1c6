#include "tools/mdfgen/container_wrap.h"

#include <gtest/gtest.h>

#include "tools/mdfgen/tests/generated_file.h"

namespace qm {
namespace {

// The outermost layer is the one a reader meets first: its header type and device id.
void expectOuterContainer(const std::string& bytes, int type, std::uint32_t device_id) {
  ASSERT_GE(bytes.size(), 20u);
  EXPECT_EQ(bytes.substr(0, 12), "Generic File");
  EXPECT_EQ(static_cast<unsigned char>(bytes[14]), type);
  EXPECT_EQ(static_cast<unsigned char>(bytes[15]), 1);
  std::uint32_t id = 0;
  for (int i = 16; i < 20; ++i) id = (id << 8) | static_cast<unsigned char>(bytes[i]);
  EXPECT_EQ(id, device_id);
}

TEST(ContainerWrap, LastLayerGivenIsTheOutermost) {
  std::string payload = test::generatedFile(20 * 1024, 2);
  ContainerSettings settings;
  settings.device_id = 0x00C0FFEE;
  settings.password = "pw";
  settings.iterations = 10;

  std::string bytes = payload;
  settings.layers = {ContainerLayer::kCompress, ContainerLayer::kEncrypt};
  ASSERT_TRUE(wrapInContainers(bytes, settings));
  expectOuterContainer(bytes, 17, 0x00C0FFEE);

  bytes = payload;
  settings.layers = {ContainerLayer::kEncrypt, ContainerLayer::kCompress};
  ASSERT_TRUE(wrapInContainers(bytes, settings));
  expectOuterContainer(bytes, 34, 0x00C0FFEE);

  bytes = payload;
  settings.layers = {ContainerLayer::kCompress};
  ASSERT_TRUE(wrapInContainers(bytes, settings));
  expectOuterContainer(bytes, 34, 0x00C0FFEE);
  EXPECT_LT(bytes.size(), payload.size() * 3 / 4);  // logger data compresses well
}

}  // namespace
}  // namespace qm
