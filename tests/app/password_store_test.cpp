#include "app/password_store.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/log_capture.h"

namespace qm {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

class PasswordText : public ::testing::Test {
 protected:
  test::LogCapture warnings_{kLogWarning};
  PasswordStore store_;
};

// Keys are taken exactly as written, values up to the last quote of their line; a line that does
// not fit the "key": "value" shape is left out without a word.
TEST_F(PasswordText, StoresThePairsOfTheLinesThatFit) {
  const struct {
    std::string text;
    Pairs pairs;
  } cases[] = {
      {"  \"1a2b\": \"secret\",\n", {{"1a2b", "secret"}}},
      {"\"00001A2B\":\"pw\"", {{"00001A2B", "pw"}}},
      {"\"\": \"empty key\"", {{"", "empty key"}}},
      {"\t\"default\" : \"fallback\"", {{"default", "fallback"}}},
      {"\"1A\": \"pa\"ss\"word\",", {{"1A", "pa\"ss\"word"}}},
      {"\"1A\": \"say \\\"hi\\\"\"", {{"1A", "say \\\"hi\\\""}}},
      {"\"1A\": \"\"", {{"1A", ""}}},
      {"\"1E240\" : \"pa\"ss\"word\" ,   \n\"ABC\":\"x\"", {{"1E240", "pa\"ss\"word"}, {"ABC", "x"}}},
      {"{\r\n  \"12\": \"abc\",\r\n  \"default\": \"d\"\r\n}\r\n", {{"12", "abc"}, {"default", "d"}}},
      {"{\n  \"1A2B\": \"first\",\n  \"default\": \"fallback\",\n\n  \"DEFAULT\": \"ignored\",\n"
       "  \"ff00\": \"caf\xc3\xa9 \xe2\x82\xac\"\n}\n",
       {{"1A2B", "first"}, {"default", "fallback"}, {"ff00", "caf\xc3\xa9 \xe2\x82\xac"}}},
      {"\"DEFAULT\": \"x\"", {}},
      {"\"12G4\": \"x\"", {}},
      {"\"1A\": \"x\" trailing", {}},
      {"\"1A\" \"x\"", {}},
      {"\"1A\": \"pw\",,", {}},
      {"{ not: json at all }\n\n", {}},
      {"", {}},
  };
  for (const auto& c : cases) {
    PasswordStore store;
    ASSERT_TRUE(parsePasswordText(c.text, store));
    EXPECT_EQ(store.size(), c.pairs.size()) << c.text;
    for (const auto& [key, value] : c.pairs) {
      const SmallString* found = store.find(key);
      EXPECT_TRUE(found && found->view() == value) << c.text << ": " << key;
    }
  }
  EXPECT_TRUE(warnings_.lines().empty());
}

TEST_F(PasswordText, DevicesAreLookedUpInUpperCaseHexWithoutLeadingZerosThenDefault) {
  ASSERT_TRUE(parsePasswordText("\"1a2b\": \"lower\"\n\"00001A2C\": \"zeros\"\n\"1E240\": \"decimal 123456\"\n", store_));
  EXPECT_EQ(*store_.findForDevice(123456), "decimal 123456");
  EXPECT_EQ(store_.findForDevice(0x1A2B), nullptr);
  EXPECT_EQ(store_.findForDevice(0x1A2C), nullptr);
  ASSERT_TRUE(parsePasswordText("\"default\": \"fallback\"", store_));
  EXPECT_EQ(*store_.findForDevice(0x1A2B), "fallback");
  EXPECT_EQ(*store_.findForDevice(123456), "decimal 123456");
}

TEST_F(PasswordText, FirstValueWinsWithOneWarning) {
  ASSERT_TRUE(parsePasswordText("\"AA\": \"first\"\n\"AA\": \"second\"\n", store_));
  EXPECT_EQ(*store_.find("AA"), "first");
  EXPECT_EQ(warnings_.lines(), std::vector<std::string>{"Failed to insert key for \"AA\" in password storage"});
}

}  // namespace
}  // namespace qm
