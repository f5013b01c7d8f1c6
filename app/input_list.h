#pragma once
// Turns the positional arguments into one common root directory and names within it.
#include <string_view>
#include <vector>

#include "base/small_string.h"

namespace qm {

struct InputList {
  SmallString common_root;
  std::vector<SmallString> inputs;
};

// Absolute form of an argument, with "\" turned into "/", "//" collapsed (but for the two that
// start a network share's root on Windows) and a trailing "/" dropped. A relative ".."
// deliberately contributes an empty path.
SmallString normalizeInputPath(std::string_view argument, std::string_view working_directory);

// The parent of a path: the text before its last "/" at a position above 0, or the path itself
// (also when that "/" lies inside a root such as "//server/share").
std::string_view parentOf(std::string_view path);

// Fills the list when every argument lies directly in one directory; false otherwise.
bool computeInputList(const std::vector<std::string_view>& arguments, std::string_view working_directory,
                      InputList& list);

}  // namespace qm
