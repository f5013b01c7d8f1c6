#include "platform/terminal.h"

#include <windows.h>

#include <climits>
#include <memory>
#include <new>

#include "platform/system_error.h"

namespace qm {
namespace {

HANDLE handleOf(OutputHandle output) { return reinterpret_cast<HANDLE>(output.value); }

bool isConsole(HANDLE handle) {
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) != 0;
}

int failed() {
  setLastSystemError(static_cast<int>(GetLastError()));
  return -1;
}

// A log line or a status line converts on the stack; writeAll hands over pieces of this size.
constexpr std::size_t kPieceBytes = 1024;

// Bytes in the UTF-8 sequence that `lead` begins; a stray byte stands alone (the conversion
// makes it a U+FFFD).
std::size_t sequenceLength(unsigned char lead) {
  if (lead >= 0xC0 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  if (lead >= 0xF0 && lead < 0xF8) return 4;
  return 1;
}

// The longest start of the bytes that does not end inside a multi-byte sequence, so that a
// character cut in two by a piece's end is not shown as two broken ones.
std::size_t wholeSequences(const char* bytes, std::size_t size) {
  for (std::size_t back = 1; back <= 4 && back <= size; ++back) {
    const auto byte = static_cast<unsigned char>(bytes[size - back]);
    if ((byte & 0xC0) == 0x80) continue;  // a continuation byte: the lead lies further back
    return sequenceLength(byte) > back ? size - back : size;
  }
  return size;
}

// The bytes behind the first `units` UTF-16 units of their conversion (a character beyond the
// first plane takes two).
std::size_t bytesOfUnits(const char* bytes, std::size_t size, std::size_t units) {
  std::size_t at = 0;
  while (at < size) {
    const std::size_t length = sequenceLength(static_cast<unsigned char>(bytes[at]));
    const std::size_t needed = length == 4 ? 2 : 1;
    if (needed > units || length > size - at) break;
    units -= needed;
    at += length;
  }
  return at;
}

// The program's texts are UTF-8. A console takes them as UTF-16, whatever its code page: file
// names with umlauts or in Chinese show as they are.
std::ptrdiff_t writeToConsole(HANDLE console, const char* bytes, std::size_t size) {
  if (size == 0) return 0;
  if (size > INT_MAX) size = wholeSequences(bytes, INT_MAX);
  // UTF-16 never takes more units than UTF-8 takes bytes.
  wchar_t on_stack[kPieceBytes];
  std::unique_ptr<wchar_t[]> on_heap;
  wchar_t* units = on_stack;
  if (size > kPieceBytes) {
    on_heap.reset(new (std::nothrow) wchar_t[size]);
    if (!on_heap) {
      setLastSystemError(ERROR_NOT_ENOUGH_MEMORY);
      return -1;
    }
    units = on_heap.get();
  }
  const int count = MultiByteToWideChar(CP_UTF8, 0, bytes, static_cast<int>(size), units, static_cast<int>(size));
  if (count <= 0) return failed();
  DWORD written = 0;
  if (!WriteConsoleW(console, units, static_cast<DWORD>(count), &written, nullptr)) return failed();
  if (written >= static_cast<DWORD>(count)) return static_cast<std::ptrdiff_t>(size);
  return static_cast<std::ptrdiff_t>(bytesOfUnits(bytes, size, written));
}

// A file or a pipe gets the bytes unchanged.
std::ptrdiff_t writeToFile(HANDLE file, const char* bytes, std::size_t size) {
  const DWORD count = size > (DWORD{1} << 30) ? (DWORD{1} << 30) : static_cast<DWORD>(size);
  DWORD written = 0;
  if (!WriteFile(file, bytes, count, &written, nullptr)) return failed();
  return static_cast<std::ptrdiff_t>(written);
}

}  // namespace

OutputHandle standardErrorHandle() {
  return OutputHandle{reinterpret_cast<std::intptr_t>(GetStdHandle(STD_ERROR_HANDLE))};
}

bool isTerminal(OutputHandle output) {
  const HANDLE handle = handleOf(output);
  DWORD mode = 0;
  if (!GetConsoleMode(handle, &mode)) return false;
  // The status line is redrawn with a terminal's control sequences, which a console takes
  // since Windows 10 once asked to. An older one would print them as they are: the person at
  // it gets the log lines without a status line, as a script does.
  if ((mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0) return true;
  return SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

int terminalColumns(OutputHandle output) {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(handleOf(output), &info)) return 0;
  return info.srWindow.Right - info.srWindow.Left + 1;
}

std::ptrdiff_t writeOnce(OutputHandle output, const void* data, std::size_t size) {
  const HANDLE handle = handleOf(output);
  const auto* bytes = static_cast<const char*>(data);
  return isConsole(handle) ? writeToConsole(handle, bytes, size) : writeToFile(handle, bytes, size);
}

bool writeAll(OutputHandle output, const void* data, std::size_t size) {
  const HANDLE handle = handleOf(output);
  const bool console = isConsole(handle);
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    std::ptrdiff_t written = 0;
    if (console) {
      const std::size_t piece = size > kPieceBytes ? wholeSequences(bytes, kPieceBytes) : size;
      written = writeToConsole(handle, bytes, piece);
    } else {
      written = writeToFile(handle, bytes, size);
    }
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace qm
