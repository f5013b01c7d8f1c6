#pragma once
// Paths between the program and the system's wide calls. The program spells paths in UTF-8 with
// "/" between names; the wide calls take UTF-16 with "\", and only an absolute path with the
// "\\?\" prefix may be longer than 260 characters.
#include <optional>
#include <string>
#include <string_view>

namespace qm {

// None, with the reason in lastSystemError(), for text that is no UTF-8.
std::optional<std::wstring> wideText(std::string_view utf8);
std::string utf8Text(std::wstring_view wide);

// The path as the wide calls take it: absolute, "\" between names, with the long-path prefix
// ("\\?\C:\x", "\\?\UNC\server\share\x"). A bare drive "C:" is that drive's root; a path already
// in the system's own form ("\\?\...", a device "\\.\...") stays as it is. None, with the reason
// in lastSystemError(), for an empty path or one the system cannot make absolute.
std::optional<std::wstring> systemPath(const char* path);

// A path the system hands back, as the program spells it: "C:/x", "//server/share/x".
std::string programPath(std::wstring_view path);

}  // namespace qm
