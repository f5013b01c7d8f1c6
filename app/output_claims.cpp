#include "app/output_claims.h"

#include <optional>
#include <string>

#include "base/log.h"
#include "platform/file_system.h"

namespace qm {
namespace {

int viewLength(std::string_view text) { return static_cast<int>(text.size()); }

SmallString resolvedFolder(const DirectoryHandle& directory, std::string_view folder) {
  SmallString joined = directory.join(folder);
  std::optional<std::string> resolved = resolvePath(joined.empty() ? "." : joined.c_str());
  if (!resolved) return joined;
  return SmallString(*resolved);
}

}  // namespace

SmallString resolvedPath(const DirectoryHandle& directory, std::string_view relative) {
  std::size_t slash = relative.rfind('/');
  std::string_view folder = slash == std::string_view::npos ? std::string_view() : relative.substr(0, slash);
  std::string_view name = slash == std::string_view::npos ? relative : relative.substr(slash + 1);
  SmallString path = resolvedFolder(directory, folder);
  path.append("/");
  path.append(name);
  return path;
}

void OutputClaims::notePendingFolder(const DirectoryHandle& root, std::string_view folder,
                                     const std::vector<DirectoryEntry>& entries) {
  SmallString resolved = resolvedFolder(root, folder);
  for (const DirectoryEntry& entry : entries) {
    if (entry.type != kEntryFile) continue;
    SmallString path = resolved;
    path.append("/");
    path.append(entry.name.view());
    SmallString input(folder);
    if (!folder.empty()) input.append("/");
    input.append(entry.name.view());
    pending_inputs_.insert(path.view(), std::move(input));
  }
}

void OutputClaims::notePendingFile(const DirectoryHandle& root, std::string_view input_path) {
  pending_inputs_.insert(resolvedPath(root, input_path).view(), SmallString(input_path));
}

bool OutputClaims::claim(const DirectoryHandle& root, std::string_view input_path, const DirectoryHandle& output_root,
                         std::string_view output_path) {
  pending_inputs_.erase(resolvedPath(root, input_path).view());
  SmallString output = resolvedPath(output_root, output_path);
  if (const SmallString* earlier = written_outputs_.find(output.view())) {
    QM_LOG_E("Not converting %.*s: its output %.*s is already the output of %s", viewLength(input_path),
             input_path.data(), viewLength(output_path), output_path.data(), earlier->c_str());
    return false;
  }
  written_outputs_.insert(output.view(), SmallString(input_path));
  return true;
}

bool OutputClaims::mayWrite(std::string_view input_path, const DirectoryHandle& output_root,
                            std::string_view output_path) {
  const SmallString* pending = pending_inputs_.find(resolvedPath(output_root, output_path).view());
  if (!pending) return true;
  QM_LOG_E("Not converting %.*s: its output %.*s would replace %s, which is still to be converted",
           viewLength(input_path), input_path.data(), viewLength(output_path), output_path.data(), pending->c_str());
  return false;
}

}  // namespace qm
