#include "platform/console_window.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "platform/terminal.h"

namespace qm {
namespace {

// Wine gives a program started from a terminal a console of its own, on that terminal, which
// stays when the program ends.
bool runsUnderWine() {
  const HMODULE system = GetModuleHandleW(L"ntdll.dll");
  return system != nullptr && GetProcAddress(system, "wine_get_version") != nullptr;
}

}  // namespace

bool ownsConsoleWindowAlone() {
  DWORD mode = 0;
  if (!GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode)) return false;
  // A shell that started the program shares its console, and so does any program that started
  // it there; only a console the system made for the program has it alone.
  DWORD processes[2];
  if (GetConsoleProcessList(processes, static_cast<DWORD>(std::size(processes))) != 1) return false;
  return !runsUnderWine();
}

void waitForEnterToClose() {
  // Whatever the C library still holds of the usage text goes above the question.
  std::fflush(stdout);
  std::fflush(stderr);
  constexpr char kQuestion[] = "Press Enter to close";
  writeAll(standardErrorHandle(), kQuestion, sizeof kQuestion - 1);
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  FlushConsoleInputBuffer(input);
  wchar_t typed[256];
  DWORD count = 0;
  // A line longer than the buffer arrives in pieces; the one with the line's end ends the wait.
  while (ReadConsoleW(input, typed, static_cast<DWORD>(std::size(typed)), &count, nullptr) && count > 0) {
    if (std::any_of(typed, typed + count, [](wchar_t c) { return c == L'\r' || c == L'\n'; })) return;
  }
}

}  // namespace qm
