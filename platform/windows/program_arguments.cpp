#include "platform/program_arguments.h"

#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

namespace qm {
namespace {

// A lone surrogate, which no UTF-8 text can hold, becomes U+FFFD.
std::string utf8FromUtf16(const wchar_t* text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 1) return {};
  std::string utf8(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
  utf8.pop_back();  // the terminating zero
  return utf8;
}

}  // namespace

std::vector<std::string> programArguments(int argc, char** argv) {
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  // Without memory for the split, what the C library made of the command line still serves
  // for any name in the console's code page.
  if (!arguments) return std::vector<std::string>(argv, argv + argc);
  std::vector<std::string> utf8;
  utf8.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) utf8.push_back(utf8FromUtf16(arguments[i]));
  LocalFree(arguments);
  return utf8;
}

}  // namespace qm
