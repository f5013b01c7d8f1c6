#include "platform/system_error.h"

#include <windows.h>

#include <cstdio>
#include <string>

#include "platform/windows/wide_path.h"

namespace qm {

// The numbers are the system's own (GetLastError), not the runtime library's errno: every
// platform call here is a system call, and the system's numbers name its failures more closely.
int lastSystemError() { return static_cast<int>(GetLastError()); }

void setLastSystemError(int error) { SetLastError(static_cast<DWORD>(error)); }

const char* systemErrorText(int error) {
  // Looking a text up is no failure of its own: the reason stays. Taken first, as reaching a
  // thread's own variable may clear it (MinGW keeps them through TlsGetValue).
  const DWORD reason = GetLastError();
  // One text per thread, as the caller may keep it while other threads report their own.
  thread_local std::string kept;
  std::string& text = kept;
  wchar_t* message = nullptr;
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, static_cast<DWORD>(error), 0, reinterpret_cast<wchar_t*>(&message), 0, nullptr);
  if ((length == 0 || message == nullptr) && error == systemErrorIsADirectory()) {
    text = "An operation is not supported on a directory.";  // Windows' words, which Wine lacks
  } else if (length == 0 || message == nullptr) {
    char unknown[32];
    std::snprintf(unknown, sizeof unknown, "Unknown error %d", error);
    text = unknown;
  } else {
    text = utf8Text(std::wstring_view(message, length));
    LocalFree(message);
  }
  // The system's texts end in a line break; the program writes each on a line of its own.
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  const char* result = text.c_str();
  SetLastError(reason);
  return result;
}

// Windows refuses a file's call on a folder as an access denied; the platform calls that meet a
// folder there report this number instead, which says what "Is a directory" says on Linux.
int systemErrorIsADirectory() {
  constexpr int kDirectoryNotSupported = 336;  // ERROR_DIRECTORY_NOT_SUPPORTED, newer than MinGW's headers
  return kDirectoryNotSupported;
}
int systemErrorExists() { return ERROR_ALREADY_EXISTS; }
int systemErrorInvalidArgument() { return ERROR_INVALID_PARAMETER; }
int systemErrorInputOutput() { return ERROR_IO_DEVICE; }

}  // namespace qm
