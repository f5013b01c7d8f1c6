#include "app/input_list.h"

#include "base/hash_map.h"
#include "platform/path_syntax.h"

namespace qm {
namespace {

void replaceAll(SmallString& text, std::string_view from, std::string_view to) {
  SmallString result;
  std::string_view rest = text.view();
  for (std::size_t at; (at = rest.find(from)) != std::string_view::npos; rest.remove_prefix(at + from.size())) {
    result.append(rest.substr(0, at));
    result.append(to);
  }
  result.append(rest);
  text = std::move(result);
}

}  // namespace

SmallString normalizeInputPath(std::string_view argument, std::string_view working_directory) {
  SmallString path;
  if (pathRootLength(argument) > 0) {
    path = SmallString(argument);
  } else if (argument != "..") {
    path = SmallString(working_directory);
    path.append("/");
    path.append(argument);
  }
  replaceAll(path, "\\", "/");
  // The separators inside a root ("//server/share/") are no doubled ones, but the one that ends
  // it may be ("C://x"). A root "/" keeps nothing back, so "//x" becomes "/x".
  const std::size_t root = pathRootLength(path.view());
  const std::size_t kept = root > 0 ? root - 1 : 0;
  SmallString rest(path.view().substr(kept));
  replaceAll(rest, "//", "/");
  path.truncate(kept);
  path.append(rest.view());
  if (!path.empty() && path.view().back() == '/') path.truncate(path.size() - 1);
  return path;
}

std::string_view parentOf(std::string_view path) {
  std::size_t slash = path.rfind('/');
  // A "/" inside a root ("//server/share") does not end a parent.
  if (slash == std::string_view::npos || slash == 0 || slash + 1 < pathRootLength(path)) return path;
  return path.substr(0, slash);
}

bool computeInputList(const std::vector<std::string_view>& arguments, std::string_view working_directory,
                      InputList& list) {
  std::vector<SmallString> paths;
  HashSet<SmallString> parents;
  for (std::string_view argument : arguments) {
    paths.push_back(normalizeInputPath(argument, working_directory));
    parents.insert(parentOf(paths.back().view()));
  }
  if (parents.size() != 1) return false;
  parents.forEach([&](const SmallString& parent, NoValue) { list.common_root = parent; });
  for (const SmallString& path : paths) {
    // The name is what follows the root and its "/"; clamped, never negative.
    std::size_t skip = list.common_root.size() + 1;
    list.inputs.emplace_back(skip < path.size() ? path.view().substr(skip) : std::string_view());
  }
  return true;
}

}  // namespace qm
