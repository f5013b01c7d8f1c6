#include "platform/path_syntax.h"

namespace qm {

bool isPathSeparator(char c) { return c == '/'; }

std::size_t pathRootLength(std::string_view path) { return !path.empty() && path.front() == '/' ? 1 : 0; }

}  // namespace qm
