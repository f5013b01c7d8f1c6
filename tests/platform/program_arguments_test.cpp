#include "platform/program_arguments.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/windows_child.h"

namespace qm {
namespace {

#ifndef _WIN32

// The system holds names as bytes: none is changed, not even one that is no UTF-8.
TEST(PosixProgramArguments, AreTheArgumentsAsGiven) {
  char name[] = "quillmend";
  char option[] = "--verbosity=3";
  char umlauts[] = "Gr\xc3\xbc\xc3\x9f" "e.MF4";
  char latin1[] = "caf\xe9";
  char empty[] = "";
  char* argv[] = {name, option, umlauts, latin1, empty, nullptr};
  const std::vector<std::string> expected = {"quillmend", "--verbosity=3", "Gr\xc3\xbc\xc3\x9f" "e.MF4", "caf\xe9", ""};
  EXPECT_EQ(programArguments(5, argv), expected);
}

#else

// The UTF-16 command line of a child, and the UTF-8 arguments it must see.
struct Argument {
  const wchar_t* on_command_line;
  const char* utf8;
};
const Argument kArguments[] = {
    {L"plain.MF4", "plain.MF4"},
    {L"Gr\u00fc\u00dfe.mf4", "Gr\xc3\xbc\xc3\x9f" "e.mf4"},
    {L"\u65e5\u672c\u8a9e", "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e"},
    {L"\U0001D11E", "\xf0\x9d\x84\x9e"},  // beyond the first plane: a surrogate pair
    {L"\"with space\"", "with space"},
    {L"\"C:\\logs\\\\\"", "C:\\logs\\"},  // backslashes before a closing quote
    {L"a\\\"b", "a\"b"},
    {L"\"\"", ""},
};

// Run as a child of the test below, with kArguments after the test's own options.
TEST(WindowsProgramArguments, DISABLED_ChildSeesItsArgumentsAsUtf8) {
  const std::vector<std::string> arguments = programArguments(0, nullptr);
  const std::size_t count = std::size(kArguments);
  ASSERT_GE(arguments.size(), count + 1);
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_EQ(arguments[arguments.size() - count + i], kArguments[i].utf8) << "argument " << i;
  }
}

// Names in any script reach the program intact, which the C library's argv, in the system's
// legacy code page, could not carry.
TEST(WindowsProgramArguments, Utf16CommandLineBecomesUtf8) {
  std::wstring arguments;
  for (const Argument& argument : kArguments) arguments += L" " + std::wstring(argument.on_command_line);
  EXPECT_EQ(test::runTestInChild(L"WindowsProgramArguments.DISABLED_ChildSeesItsArgumentsAsUtf8", arguments, false), 0u)
      << "the child's failures are above";
}

#endif

}  // namespace
}  // namespace qm
