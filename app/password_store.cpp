#include "app/password_store.h"

#include <memory>
#include <optional>
#include <string>

#include "base/log.h"
#include "platform/file_system.h"
#include "platform/path_syntax.h"
#include "regex/regex.h"
#include "stream/directory_handle.h"

namespace qm {
namespace {

constexpr const char* kDefaultPasswordFile = "passwords.json";
constexpr const char* kPasswordLinePattern =
    "^\\s*\"(default|[a-fA-F\\d]*)\"\\s*:\\s*\"(.*)\"\\s*,?\\s*$";

// Where the last separator of `path` stands, or npos.
std::size_t lastSeparator(std::string_view path) {
  for (std::size_t at = path.size(); at > 0; --at) {
    if (isPathSeparator(path[at - 1])) return at - 1;
  }
  return std::string_view::npos;
}

// The directory to resolve the password file against: its own folder when the path is
// absolute, otherwise the working directory.
std::unique_ptr<DirectoryHandle> openPasswordDirectory(std::string_view path) {
  const std::size_t root = pathRootLength(path);
  const std::size_t slash = lastSeparator(path);
  if (root > 0 && slash != std::string_view::npos) {
    // The text before the last separator, or the root itself when that separator ends it.
    return DirectoryHandle::create(slash < root ? path.substr(0, root) : path.substr(0, slash));
  }
  std::optional<std::string> cwd = currentFolder();
  if (!cwd) {
    QM_LOG_F("Fatal error, could not get current working directory");
    return DirectoryHandle::create("");
  }
  return DirectoryHandle::create(*cwd);
}

bool readWholeFile(const DirectoryHandle& directory, std::string_view path, SmallString& text) {
  std::unique_ptr<Stream> file = directory.open(path, kOpenRead);
  if (!file) return false;
  std::int64_t size = streamSize(file.get());
  bool complete = size >= 0 && streamRead(file.get(), text.extend(static_cast<std::size_t>(size)),
                                          static_cast<std::size_t>(size)) == size;
  file->close();
  return complete;
}

}  // namespace

const SmallString* PasswordStore::findForDevice(std::uint32_t device_id) const {
  SmallString key = SmallString::format("%X", device_id);
  if (const SmallString* password = find(key)) return password;
  return find("default");
}

bool parsePasswordText(std::string_view text, PasswordStore& store) {
  Regex pattern = Regex::compile(kPasswordLinePattern, kRegexMultiLine);
  if (!pattern.ok()) return false;
  RegexMatch match;
  std::size_t from = 0;
  while (from <= text.size() && pattern.search(text, from, &match)) {
    std::string_view key = match.group(text, 1);
    if (!store.insert(key, match.group(text, 2))) {
      QM_LOG_W("Failed to insert key for \"%.*s\" in password storage", static_cast<int>(key.size()),
               key.data());
    }
    // An empty match cannot happen (the quotes are required), but never loop in place.
    std::size_t end = match.groups[0].end;
    from = end > from ? end : from + 1;
  }
  return true;
}

bool loadPasswordFile(const char* path, int* exit_status, PasswordStore& store) {
  bool named = path != nullptr;
  std::string_view file = named ? path : kDefaultPasswordFile;
  std::unique_ptr<DirectoryHandle> directory = openPasswordDirectory(file);
  if (!directory) return false;
  DirectoryEntry entry;
  if (!directory->stat(file, &entry)) {
    QM_LOG_E("Stat of password file failed");
    return false;
  }
  if (entry.type != kEntryFile) {
    QM_LOG_W("Failed to open password file at %.*s", static_cast<int>(file.size()), file.data());
    if (named && exit_status) *exit_status |= 1;
    return false;
  }
  SmallString text;
  if (!readWholeFile(*directory, file, text)) return false;
  if (!parsePasswordText(text.view(), store)) {
    QM_LOG_E("Could not parse password file");
    return false;
  }
  return true;
}

}  // namespace qm
