#include "stream/directory_handle.h"

#include <algorithm>

#include "base/log.h"
#include "platform/file_system.h"
#include "platform/path_syntax.h"
#include "stream/file_stream.h"

namespace qm {
namespace {

int entryTypeOf(PathType type) {
  switch (type) {
    case PathType::kFile: return kEntryFile;
    case PathType::kFolder: return kEntryDirectory;
    case PathType::kMissing: return kEntryMissing;
    case PathType::kOther: break;
  }
  return kEntryOther;
}

void copyFacts(const PathFacts& facts, DirectoryEntry* entry) {
  entry->type = entryTypeOf(facts.type);
  entry->size = facts.size;
  entry->modified_ns = facts.modified_ns;
  entry->changed_ns = facts.changed_ns;
  entry->inode = facts.identity;
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
  if (pathRootLength(relative) > 0) return SmallString(relative);
  SmallString path;
  path.append(root_path_.view());
  if (!root_path_.empty() && !relative.empty()) path.append("/", 1);
  path.append(relative);
  return path;
}

bool DirectoryHandle::stat(std::string_view relative, DirectoryEntry* entry) const {
  if (!entry) return false;
  PathFacts facts;
  if (!queryPath(join(relative).c_str(), &facts)) return false;
  if (facts.type == PathType::kMissing) {
    // Only the type and size say so; the times and identity of an earlier look stay.
    entry->type = kEntryMissing;
    entry->size = 0;
  } else {
    copyFacts(facts, entry);
  }
  return true;
}

bool DirectoryHandle::list(std::string_view relative, std::vector<DirectoryEntry>* sorted) const {
  if (!sorted) return false;
  QM_LOG_I("ls: %.*s", static_cast<int>(relative.size()), relative.data());
  return listQuietly(relative, sorted);
}

bool DirectoryHandle::listQuietly(std::string_view relative, std::vector<DirectoryEntry>* sorted) const {
  if (!sorted) return false;
  std::vector<FolderEntry> found;
  const bool listed = listFolder(join(relative).c_str(), &found);
  // After a failure the entries read before it are still added, unsorted: counting what can be
  // seen uses them.
  const std::size_t before = sorted->size();
  for (FolderEntry& item : found) {
    if (item.facts.type != PathType::kFile && item.facts.type != PathType::kFolder) continue;
    DirectoryEntry entry;
    entry.name = SmallString(item.name);
    copyFacts(item.facts, &entry);
    sorted->push_back(std::move(entry));
  }
  if (!listed) return false;
  // The entries present before come first, so a stable merge followed by unique keeps them
  // over a newly listed entry of the same name.
  std::inplace_merge(sorted->begin(), sorted->begin() + static_cast<std::ptrdiff_t>(before), sorted->end(), nameLess);
  auto same_name = [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name == b.name; };
  sorted->erase(std::unique(sorted->begin(), sorted->end(), same_name), sorted->end());
  return true;
}

bool DirectoryHandle::makeDirectory(std::string_view relative) const {
  return makeFolder(join(relative).c_str());
}

bool DirectoryHandle::removeFile(std::string_view relative) const {
  return qm::removeFile(join(relative).c_str());
}

std::unique_ptr<Stream> DirectoryHandle::open(std::string_view relative, int flags) const {
  bool reading = (flags & kOpenRead) != 0;
  bool writing = (flags & kOpenWrite) != 0;
  if (!reading && !writing) return nullptr;
  int mode = reading && writing ? kFileReadWrite : (writing ? kFileWrite : kFileRead);
  return FileStream::open(join(relative).c_str(), mode);
}

}  // namespace qm
