#include "app/password_store.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/log.h"

namespace qm {
namespace {

struct Warnings {
  std::vector<std::string> lines;
  static void capture(void* arg, LogLine& line) {
    static_cast<Warnings*>(arg)->lines.emplace_back(line.start, line.pos);
  }
};

class PasswordText : public ::testing::Test {
 protected:
  void SetUp() override {
    setLogThreshold(kLogWarning);
    setLogOutput(kLogMessage, &warnings_, Warnings::capture);
  }
  void TearDown() override {
    setLogOutput(kLogContext | kLogTag | kLogLocation | kLogMessage, nullptr, nullptr);
    setLogThreshold(0);
  }
  Warnings warnings_;
  PasswordStore store_;
};

TEST_F(PasswordText, KeysAreStoredExactlyAsWritten) {
  ASSERT_TRUE(parsePasswordText("{\n"
                                "  \"1a2b\": \"lower\",\n"
                                "  \"00001A2C\": \"zeros\",\n"
                                "  \"\": \"empty key\",\n"
                                "  \"DEFAULT\": \"ignored\",\n"
                                "  \"default\": \"fallback\"\n"
                                "}\n",
                                store_));
  EXPECT_EQ(store_.size(), 4u);
  EXPECT_EQ(*store_.find("1a2b"), "lower");
  EXPECT_EQ(*store_.find(""), "empty key");
  EXPECT_EQ(store_.find("DEFAULT"), nullptr);
  // Lookups use "%X": no lower case, no leading zeros, so only the default entry answers.
  EXPECT_EQ(*store_.findForDevice(0x1A2B), "fallback");
  EXPECT_EQ(*store_.findForDevice(0x1A2C), "fallback");
}

TEST_F(PasswordText, ValueKeepsInnerQuotesUpToTheLastOne) {
  ASSERT_TRUE(parsePasswordText("\"1E240\" : \"pa\"ss\"word\" ,   \n\"ABC\":\"x\"", store_));
  EXPECT_EQ(*store_.find("1E240"), "pa\"ss\"word");
  EXPECT_EQ(*store_.find("ABC"), "x");
  EXPECT_EQ(*store_.findForDevice(123456), "pa\"ss\"word");
  EXPECT_EQ(store_.findForDevice(0xABD), nullptr);
}

TEST_F(PasswordText, FirstValueWinsWithOneWarning) {
  ASSERT_TRUE(parsePasswordText("\"AA\": \"first\"\n\"AA\": \"second\"\n", store_));
  EXPECT_EQ(*store_.find("AA"), "first");
  ASSERT_EQ(warnings_.lines.size(), 1u);
  EXPECT_EQ(warnings_.lines[0], "Failed to insert key for \"AA\" in password storage");
}

TEST_F(PasswordText, NothingMatchingIsNoError) {
  EXPECT_TRUE(parsePasswordText("{ not: json at all }\n\n", store_));
  EXPECT_EQ(store_.size(), 0u);
  EXPECT_EQ(store_.findForDevice(1), nullptr);
  EXPECT_TRUE(warnings_.lines.empty());
}

TEST_F(PasswordText, WindowsLineEndsGiveCleanValues) {
  ASSERT_TRUE(parsePasswordText("{\r\n  \"12\": \"abc\",\r\n  \"default\": \"d\"\r\n}\r\n", store_));
  EXPECT_EQ(*store_.find("12"), "abc");
  EXPECT_EQ(*store_.find("default"), "d");
}

}  // namespace
}  // namespace qm
