#include "platform/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/posix/path_facts.h"

namespace qm {

bool queryPath(const char* path, PathFacts* facts) {
  struct stat info;
  if (::stat(path, &info) != 0) {
    if (errno != ENOENT) return false;
    *facts = PathFacts{};
    facts->type = PathType::kMissing;
    return true;
  }
  *facts = pathFactsOf(info);
  return true;
}

bool listFolder(const char* path, std::vector<FolderEntry>* entries) {
  DIR* folder = ::opendir(path);
  if (!folder) return false;
  const std::size_t before = entries->size();
  std::string entry_path = path;
  entry_path += '/';
  const std::size_t name_start = entry_path.size();
  int failure = 0;
  for (;;) {
    errno = 0;
    const dirent* item = ::readdir(folder);
    if (item == nullptr) {
      failure = errno;  // 0 at the end of the listing
      break;
    }
    if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0) continue;
    entry_path.replace(name_start, std::string::npos, item->d_name);
    FolderEntry entry;
    if (!queryPath(entry_path.c_str(), &entry.facts)) {
      failure = errno;
      break;
    }
    if (entry.facts.type == PathType::kMissing) continue;
    entry.name = item->d_name;
    entries->push_back(std::move(entry));
  }
  ::closedir(folder);
  if (failure != 0) {
    errno = failure;
    return false;
  }
  // std::string compares as unsigned bytes, as strcmp does.
  std::sort(entries->begin() + static_cast<std::ptrdiff_t>(before), entries->end(),
            [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
  return true;
}

bool makeFolder(const char* path) { return ::mkdir(path, 0777) == 0; }

bool removeFile(const char* path) { return ::unlink(path) == 0; }

bool renameReplacing(const char* from, const char* to) { return std::rename(from, to) == 0; }

bool flushFolderToDisk(const char* path, DiskFlush flush) {
  int descriptor = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool flushed = flush(descriptor);
  const int reason = errno;
  ::close(descriptor);
  errno = reason;
  return flushed;
}

std::optional<std::string> currentFolder() {
  char path[PATH_MAX];
  if (!::getcwd(path, sizeof path)) return std::nullopt;
  return std::string(path);
}

std::optional<std::string> resolvePath(const char* path) {
  char resolved[PATH_MAX];
  if (!::realpath(path, resolved)) return std::nullopt;
  return std::string(resolved);
}

}  // namespace qm
