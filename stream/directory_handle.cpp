#include "stream/directory_handle.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "stream/file_stream.h"

namespace qm {
namespace {

bool statPath(const char* path, DirectoryEntry* entry) {
  struct stat info;
  if (::stat(path, &info) != 0) {
    if (errno != ENOENT) return false;
    entry->type = kEntryMissing;
    entry->size = 0;
    return true;
  }
  entry->size = 0;
  entry->modified_ns = static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec;
  entry->changed_ns = static_cast<std::int64_t>(info.st_ctim.tv_sec) * 1'000'000'000 + info.st_ctim.tv_nsec;
  entry->inode = static_cast<std::uint64_t>(info.st_ino);
  if (S_ISREG(info.st_mode)) {
    entry->type = kEntryFile;
    entry->size = static_cast<std::int64_t>(info.st_size);
  } else if (S_ISDIR(info.st_mode)) {
    entry->type = kEntryDirectory;
  } else {
    entry->type = kEntryOther;
  }
  return true;
}

bool isDotOrDotDot(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Byte-wise order, as strcmp compares (unsigned bytes).
bool nameLess(const DirectoryEntry& a, const DirectoryEntry& b) { return a.name.view() < b.name.view(); }

}  // namespace

std::unique_ptr<DirectoryHandle> DirectoryHandle::create(std::string_view root_path) {
  std::unique_ptr<DirectoryHandle> handle(new DirectoryHandle(root_path));
  DirectoryEntry root;
  if (!handle->stat("", &root) || root.type != kEntryDirectory) return nullptr;
  return handle;
}

SmallString DirectoryHandle::join(std::string_view relative) const {
  if (!relative.empty() && relative.front() == '/') return SmallString(relative);
  SmallString path;
  path.append(root_path_.view());
  if (!root_path_.empty() && !relative.empty()) path.append("/", 1);
  path.append(relative);
  return path;
}

bool DirectoryHandle::stat(std::string_view relative, DirectoryEntry* entry) const {
  if (!entry) return false;
  return statPath(join(relative).c_str(), entry);
}

bool DirectoryHandle::list(std::string_view relative, std::vector<DirectoryEntry>* sorted) const {
  if (!sorted) return false;
  QM_LOG_I("ls: %.*s", static_cast<int>(relative.size()), relative.data());
  return listQuietly(relative, sorted);
}

bool DirectoryHandle::listQuietly(std::string_view relative, std::vector<DirectoryEntry>* sorted) const {
  if (!sorted) return false;
  SmallString folder = join(relative);
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return false;
  // An entry that cannot be looked at would be skipped without a word: the listing fails
  // instead, with that entry's reason in errno.
  int failure = 0;
  for (;;) {
    errno = 0;
    const dirent* item = ::readdir(dir);
    if (item == nullptr) {
      failure = errno;  // 0 at the end of the listing
      break;
    }
    if (isDotOrDotDot(item->d_name)) continue;
    SmallString path = folder;
    path.append("/", 1);
    path.append(item->d_name, std::strlen(item->d_name));
    DirectoryEntry entry;
    if (!statPath(path.c_str(), &entry)) {
      failure = errno;
      break;
    }
    if (entry.type != kEntryFile && entry.type != kEntryDirectory) continue;
    entry.name = SmallString(item->d_name);
    sorted->push_back(std::move(entry));
  }
  ::closedir(dir);
  if (failure != 0) {
    errno = failure;
    return false;
  }
  // The entries present before come first, so a stable sort followed by unique keeps them
  // over a newly listed entry of the same name.
  std::stable_sort(sorted->begin(), sorted->end(), nameLess);
  auto same_name = [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name == b.name; };
  sorted->erase(std::unique(sorted->begin(), sorted->end(), same_name), sorted->end());
  return true;
}

bool DirectoryHandle::makeDirectory(std::string_view relative) const {
  return ::mkdir(join(relative).c_str(), 0777) == 0;
}

bool DirectoryHandle::removeFile(std::string_view relative) const {
  return ::unlink(join(relative).c_str()) == 0;
}

std::unique_ptr<Stream> DirectoryHandle::open(std::string_view relative, int flags) const {
  bool reading = (flags & kOpenRead) != 0;
  bool writing = (flags & kOpenWrite) != 0;
  if (!reading && !writing) return nullptr;
  int mode = reading && writing ? kFileReadWrite : (writing ? kFileWrite : kFileRead);
  return FileStream::open(join(relative).c_str(), mode);
}

}  // namespace qm
