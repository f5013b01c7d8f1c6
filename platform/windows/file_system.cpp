#include "platform/file_system.h"

#include <windows.h>

#include <algorithm>

#include "platform/windows/path_facts.h"
#include "platform/windows/wide_path.h"

namespace qm {
namespace {

// The reasons the system gives for a path that names nothing, which a Linux system gives as
// one: no such file or folder, no such folder on the way, no such server or share, and a name
// no file can have (an unexpanded "*.mf4", say).
bool namesNothing(DWORD reason) {
  return reason == ERROR_FILE_NOT_FOUND || reason == ERROR_PATH_NOT_FOUND || reason == ERROR_INVALID_NAME ||
         reason == ERROR_BAD_NETPATH || reason == ERROR_BAD_NET_NAME;
}

void markMissing(PathFacts* facts) {
  *facts = PathFacts{};
  facts->type = PathType::kMissing;
}

// For a path the system lets no one open (a page file, say): what its folder's record tells,
// without an identity.
bool factsOfAttributes(const std::wstring& path, PathFacts* facts) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return false;
  *facts = PathFacts{};
  facts->modified_ns = nanosecondsSince1970(data.ftLastWriteTime);
  facts->changed_ns = facts->modified_ns;
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    facts->type = PathType::kFolder;
  } else if ((data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) == 0) {
    facts->type = PathType::kFile;
    facts->size = static_cast<std::int64_t>((std::uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow);
  }
  return true;
}

// Opened only to read the path's records, which no other program's sharing can refuse; a link
// is followed, and a folder opens as well as a file.
HANDLE openForFacts(const std::wstring& path) {
  return CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                     nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

// Where the root of a path in the system's form ends: the "\" after "\\?\C:", after a
// volume's name, or after "\\?\UNC\server\share".
std::size_t rootEnd(const std::wstring& path) {
  constexpr std::size_t kPrefix = 4;  // "\\?\" or "\\.\"
  if (!path.starts_with(L"\\\\?\\UNC\\")) return path.find(L'\\', kPrefix);
  const std::size_t server_end = path.find(L'\\', kPrefix + 4);
  return server_end == std::wstring::npos ? server_end : path.find(L'\\', server_end + 1);
}

// Windows says "no such folder on the way" also when a name on the way is a file, where Linux
// says "not a directory": a path through a file is an error, not a missing path. True, with
// that reason set, when the nearest existing name on the way is no folder.
bool goesThroughAFile(const std::wstring& path) {
  const std::size_t root_end = rootEnd(path);
  if (root_end == std::wstring::npos) return false;
  std::size_t end = path.size();
  while ((end = path.rfind(L'\\', end - 1)) != std::wstring::npos && end > root_end) {
    const DWORD attributes = GetFileAttributesW(path.substr(0, end).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
      if (namesNothing(GetLastError())) continue;
      return false;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return false;
    SetLastError(ERROR_DIRECTORY);  // "The directory name is invalid."
    return true;
  }
  return false;
}

// What a path the system's calls take names.
bool queryWidePath(const std::wstring& path, PathFacts* facts) {
  HANDLE handle = openForFacts(path);
  if (handle == INVALID_HANDLE_VALUE) {
    const DWORD reason = GetLastError();
    if (reason == ERROR_PATH_NOT_FOUND && goesThroughAFile(path)) return false;
    if (namesNothing(reason)) {
      markMissing(facts);
      return true;
    }
    if (factsOfAttributes(path, facts)) return true;
    SetLastError(reason);
    return false;
  }
  const bool known = factsOfHandle(handle, facts);
  closeKeepingReason(handle);
  return known;
}

}  // namespace

bool queryPath(const char* path, PathFacts* facts) {
  std::optional<std::wstring> wide = systemPath(path);
  if (wide) return queryWidePath(*wide, facts);
  if (!namesNothing(GetLastError())) return false;
  markMissing(facts);
  return true;
}

bool listFolder(const char* path, std::vector<FolderEntry>* entries) {
  std::optional<std::wstring> folder = systemPath(path);
  if (!folder) return false;
  if (folder->back() != L'\\') folder->push_back(L'\\');
  const std::size_t name_start = folder->size();
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileExW((*folder + L'*').c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr,
                                   FIND_FIRST_EX_LARGE_FETCH);
  if (search == INVALID_HANDLE_VALUE) {
    // A drive's root has no "." and "..": empty, it finds nothing at all.
    return GetLastError() == ERROR_FILE_NOT_FOUND;
  }
  const std::size_t before = entries->size();
  DWORD failure = NO_ERROR;
  std::wstring entry_path = *folder;
  do {
    const std::wstring_view name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    FolderEntry entry;
    const DWORD attributes = found.dwFileAttributes;
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
      // A link: its target's facts, as a Linux listing gives them; one to nowhere is left out.
      entry_path.replace(name_start, std::wstring::npos, name);
      if (!queryWidePath(entry_path, &entry.facts)) {
        failure = GetLastError();
        break;
      }
      if (entry.facts.type == PathType::kMissing) continue;
    } else {
      // The folder's own record: no identity and no change time, which the walk does not need
      // of a listed entry (it looks at a file's path again before it trusts it).
      entry.facts.modified_ns = nanosecondsSince1970(found.ftLastWriteTime);
      entry.facts.changed_ns = entry.facts.modified_ns;
      if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        entry.facts.type = PathType::kFolder;
      } else if ((attributes & FILE_ATTRIBUTE_DEVICE) == 0) {
        entry.facts.type = PathType::kFile;
        entry.facts.size =
            static_cast<std::int64_t>((std::uint64_t{found.nFileSizeHigh} << 32) | found.nFileSizeLow);
      }
    }
    entry.name = utf8Text(name);
    entries->push_back(std::move(entry));
  } while (FindNextFileW(search, &found));
  if (failure == NO_ERROR && GetLastError() != ERROR_NO_MORE_FILES) failure = GetLastError();
  FindClose(search);
  if (failure != NO_ERROR) {
    SetLastError(failure);
    return false;
  }
  // std::string compares as unsigned bytes, as strcmp does: the order of a Linux listing.
  std::sort(entries->begin() + static_cast<std::ptrdiff_t>(before), entries->end(),
            [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
  return true;
}

bool makeFolder(const char* path) {
  std::optional<std::wstring> wide = systemPath(path);
  return wide && CreateDirectoryW(wide->c_str(), nullptr);
}

bool removeFile(const char* path) {
  std::optional<std::wstring> wide = systemPath(path);
  if (!wide) return false;
  if (DeleteFileW(wide->c_str())) return true;
  explainRefusal(*wide);
  return false;
}

bool renameReplacing(const char* from, const char* to) {
  std::optional<std::wstring> wide_from = systemPath(from);
  std::optional<std::wstring> wide_to = wide_from ? systemPath(to) : std::nullopt;
  if (!wide_to) return false;
  // Write-through: the move is on the disk when the call returns, which is what flushing the
  // folder does on Linux.
  if (MoveFileExW(wide_from->c_str(), wide_to->c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    return true;
  }
  explainRefusal(*wide_to);
  return false;
}

bool flushFolderToDisk(const char*, DiskFlush) {
  // A folder's entries cannot be flushed on their own here: the renames that change them are
  // written through (renameReplacing) and file creations reach the disk with the file's flush.
  return true;
}

std::optional<std::string> currentFolder() {
  const DWORD needed = GetCurrentDirectoryW(0, nullptr);
  if (needed == 0) return std::nullopt;
  std::wstring path(needed, L'\0');
  const DWORD length = GetCurrentDirectoryW(needed, path.data());
  if (length == 0 || length >= needed) return std::nullopt;
  path.resize(length);
  return programPath(path);
}

std::optional<std::string> resolvePath(const char* path) {
  std::optional<std::wstring> wide = systemPath(path);
  if (!wide) return std::nullopt;
  HANDLE handle = openForFacts(*wide);
  if (handle == INVALID_HANDLE_VALUE) return std::nullopt;
  // The path the handle was opened by, with links and drive substitutes followed.
  std::wstring final_path(MAX_PATH, L'\0');
  DWORD length = GetFinalPathNameByHandleW(handle, final_path.data(), static_cast<DWORD>(final_path.size()),
                                           FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
  if (length >= final_path.size()) {
    final_path.resize(length);
    length = GetFinalPathNameByHandleW(handle, final_path.data(), static_cast<DWORD>(final_path.size()),
                                       FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    if (length >= final_path.size()) length = 0;
  }
  closeKeepingReason(handle);
  // A file system that cannot say keeps the absolute path as given.
  if (length == 0) return programPath(*wide);
  final_path.resize(length);
  return programPath(final_path);
}

}  // namespace qm
