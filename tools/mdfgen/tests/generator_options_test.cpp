#include "tools/mdfgen/generator_options.h"

#include <gtest/gtest.h>

#include "base/log.h"

namespace qm {
namespace {

std::optional<GeneratorOptions> parse(std::vector<std::string_view> args) {
  setLogThreshold(kLogFatal);  // rejected arguments are expected here
  std::optional<GeneratorOptions> options = parseGeneratorOptions(args);
  setLogThreshold(kLogWarning);
  return options;
}

TEST(GeneratorOptions, SizesTakeBinarySuffixes) {
  EXPECT_EQ(parseSize("4096"), 4096u);
  EXPECT_EQ(parseSize("64k"), 65536u);
  EXPECT_EQ(parseSize("256M"), 256u << 20);
  EXPECT_EQ(parseSize("1G"), 1u << 30);
  for (std::string_view bad : {"", "0", "k", "12x", "-5", "1.5M", "99999999999G"}) {
    EXPECT_FALSE(parseSize(bad).has_value()) << bad;
  }
}

TEST(GeneratorOptions, ContainersNestInTheOrderGiven) {
  auto options = parse({"--out", "x", "--compress", "--encrypt", "pw"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->containers.layers,
            (std::vector<ContainerLayer>{ContainerLayer::kCompress, ContainerLayer::kEncrypt}));
  EXPECT_EQ(options->containers.password, "pw");

  options = parse({"--encrypt=pw", "--compress", "--out=x"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->containers.layers,
            (std::vector<ContainerLayer>{ContainerLayer::kEncrypt, ContainerLayer::kCompress}));
}

TEST(GeneratorOptions, ValuesAreParsedAndCarriedOver) {
  auto options = parse({"--size", "2M", "--seed", "77", "--out", "a.MFE", "--device-id", "0x00ABCDEF",
                        "--iterations", "5", "--window-bits", "12", "--lookahead-bits", "5", "--plain-sorted",
                        "--damaged-id"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->file.size, 2u << 20);
  EXPECT_EQ(options->file.seed, 77u);
  EXPECT_TRUE(options->file.sorted);
  EXPECT_TRUE(options->file.damaged_id);
  EXPECT_EQ(options->out, "a.MFE");
  EXPECT_EQ(options->containers.device_id, 0xABCDEFu);
  EXPECT_EQ(options->containers.iterations, 5u);
  EXPECT_EQ(options->containers.window_bits, 12);
  EXPECT_EQ(options->containers.lookahead_bits, 5);
  EXPECT_EQ(options->containers.seed, 77u);
}

TEST(GeneratorOptions, BadCommandLinesAreRefused) {
  EXPECT_FALSE(parse({"--size", "64k"}));                                   // no output
  EXPECT_FALSE(parse({"--out"}));                                           // value missing
  EXPECT_FALSE(parse({"--out", "x", "--colour", "red"}));                   // unknown option
  EXPECT_FALSE(parse({"--out", "x", "stray"}));                             // stray argument
  EXPECT_FALSE(parse({"--out", "x", "--compress=yes"}));                    // flag with a value
  EXPECT_FALSE(parse({"--out", "x", "--device-id", "123456789"}));          // more than 32 bits
  EXPECT_FALSE(parse({"--out", "x", "--iterations", "0"}));
  EXPECT_FALSE(parse({"--out", "x", "--window-bits", "16"}));
  EXPECT_FALSE(parse({"--out", "x", "--window-bits", "8", "--lookahead-bits", "8"}));
  EXPECT_TRUE(parse({"--verify", "file.MF4"}));                             // checking needs no output
}

}  // namespace
}  // namespace qm
