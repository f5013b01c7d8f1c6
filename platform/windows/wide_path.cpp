#include "platform/windows/wide_path.h"

#include <windows.h>

#include <climits>

namespace qm {
namespace {

bool startsWith(std::wstring_view text, std::wstring_view start) { return text.substr(0, start.size()) == start; }

constexpr std::wstring_view kLongPrefix = L"\\\\?\\";
constexpr std::wstring_view kLongSharePrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view kDevicePrefix = L"\\\\.\\";

}  // namespace

std::optional<std::wstring> wideText(std::string_view utf8) {
  if (utf8.empty()) return std::wstring();
  if (utf8.size() > INT_MAX) {
    SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return std::nullopt;
  }
  const int length = static_cast<int>(utf8.size());
  const int needed = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, nullptr, 0);
  if (needed <= 0) return std::nullopt;
  std::wstring wide(static_cast<std::size_t>(needed), L'\0');
  if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, wide.data(), needed) != needed) {
    return std::nullopt;
  }
  return wide;
}

std::string utf8Text(std::wstring_view wide) {
  if (wide.empty() || wide.size() > INT_MAX) return std::string();
  const int length = static_cast<int>(wide.size());
  const int needed = WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  if (needed <= 0) return std::string();
  std::string text(static_cast<std::size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, text.data(), needed, nullptr, nullptr);
  return text;
}

std::optional<std::wstring> systemPath(const char* path) {
  if (path == nullptr || *path == '\0') {
    SetLastError(ERROR_PATH_NOT_FOUND);  // as an empty path is a missing one elsewhere
    return std::nullopt;
  }
  std::optional<std::wstring> wide = wideText(path);
  if (!wide) return std::nullopt;
  for (wchar_t& c : *wide) {
    if (c == L'/') c = L'\\';
  }
  if (startsWith(*wide, kLongPrefix) || startsWith(*wide, kDevicePrefix)) return wide;
  // "C:" alone would be the drive's current folder; as the program forms paths, a root that
  // lost its trailing separator is meant.
  if (wide->size() == 2 && (*wide)[1] == L':') wide->push_back(L'\\');
  // Also resolves "." and "..", which the prefix would otherwise pass on as names.
  const DWORD needed = GetFullPathNameW(wide->c_str(), 0, nullptr, nullptr);
  if (needed == 0) return std::nullopt;
  std::wstring full(needed, L'\0');
  const DWORD length = GetFullPathNameW(wide->c_str(), needed, full.data(), nullptr);
  if (length == 0) return std::nullopt;
  if (length >= needed) {  // the current folder changed in between
    SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return std::nullopt;
  }
  full.resize(length);
  if (startsWith(full, kDevicePrefix) || startsWith(full, kLongPrefix)) return full;  // "NUL" becomes "\\.\NUL"
  if (startsWith(full, L"\\\\")) return std::wstring(kLongSharePrefix) + full.substr(2);
  return std::wstring(kLongPrefix) + full;
}

std::string programPath(std::wstring_view path) {
  std::wstring plain;
  if (startsWith(path, kLongSharePrefix)) {
    plain = L"\\\\" + std::wstring(path.substr(kLongSharePrefix.size()));
  } else if (startsWith(path, kLongPrefix)) {
    plain = path.substr(kLongPrefix.size());
  } else {
    plain = path;
  }
  std::string text = utf8Text(plain);
  for (char& c : text) {
    if (c == '\\') c = '/';
  }
  return text;
}

}  // namespace qm
