#pragma once
// How paths are spelled on this system, for the code above the platform layer that splits and
// joins them as text. Inside the program "/" separates names; a system may accept another
// separator in what the user types, and roots other than "/".
#include <cstddef>
#include <string_view>

namespace qm {

// True for a character that separates names: "/", and on Windows also "\".
bool isPathSeparator(char c);

// How many characters of `path` name its root, separator included: 0 for a relative path,
// 1 for "/". On Windows also 3 for "C:/", 2 for "C:" (the drive's own folder follows), and
// "//server/share/" for a network share; either separator counts.
std::size_t pathRootLength(std::string_view path);

}  // namespace qm
