#include "platform/system_error.h"

#include <gtest/gtest.h>

#include <string>

namespace qm {
namespace {

// The reasons the layers above name have the system's words, each fit for one line; reading
// them leaves the reason of the last failure as it was.
TEST(SystemError, NamedReasonsHaveOneLineTextsAndLookingThemUpKeepsTheReason) {
  for (int error : {systemErrorIsADirectory(), systemErrorExists(), systemErrorInvalidArgument(),
                    systemErrorInputOutput()}) {
    setLastSystemError(error);
    const std::string text = systemErrorText(error);
    EXPECT_EQ(lastSystemError(), error);
    EXPECT_FALSE(text.empty()) << error;
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("Unknown"), std::string::npos) << text;
  }
  setLastSystemError(0);
  EXPECT_EQ(lastSystemError(), 0);
}

}  // namespace
}  // namespace qm
