#include "platform/path_syntax.h"

namespace qm {

bool isPathSeparator(char c) { return c == '/' || c == '\\'; }

std::size_t pathRootLength(std::string_view path) {
  const bool drive_letter = path.size() >= 2 && path[1] == ':' &&
                            ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
  if (drive_letter) return path.size() >= 3 && isPathSeparator(path[2]) ? 3 : 2;
  if (path.empty() || !isPathSeparator(path[0])) return 0;
  // Two separators and a name start a network share; "///x" is only rooted on the current drive.
  if (path.size() < 3 || !isPathSeparator(path[1]) || isPathSeparator(path[2])) return 1;
  std::size_t end = 2;
  for (int part = 0; part < 2 && end < path.size(); ++part) {  // the server, then the share
    while (end < path.size() && !isPathSeparator(path[end])) ++end;
    if (end < path.size()) ++end;
  }
  return end;
}

}  // namespace qm
