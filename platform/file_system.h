#pragma once
// Files and folders by their paths: what a path names, what a folder holds, and the changes the
// program makes to folders. Paths are UTF-8 with "/" between names. A function that fails says
// so in its result and leaves the reason in lastSystemError().
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/file.h"

namespace qm {

enum class PathType : int { kOther, kFile, kFolder, kMissing };

struct PathFacts {
  PathType type = PathType::kOther;
  std::int64_t size = 0;         // regular files only
  std::int64_t modified_ns = 0;  // last change of the content, nanoseconds since the epoch
  std::int64_t changed_ns = 0;   // last change of the content or of these facts, likewise
  std::uint64_t identity = 0;    // tells a file replaced under the same name
};

// What the path names, symbolic links followed. A missing path is a success with the type
// kMissing; a path through a file, say, fails.
bool queryPath(const char* path, PathFacts* facts);

struct FolderEntry {
  std::string name;
  PathFacts facts;
};
// Adds the entries of a folder but "." and ".." to `entries`, sorted by byte-wise name (the
// same order on every system), each with its facts; one that vanished before it was looked at
// is left out. False when the folder or one of its entries cannot be read: the entries read
// until then are added in the system's order.
bool listFolder(const char* path, std::vector<FolderEntry>* entries);

// Fails on a path that exists.
bool makeFolder(const char* path);
bool removeFile(const char* path);
// Moves the file at `from` to `to`, replacing a file there in one step.
bool renameReplacing(const char* from, const char* to);
// Puts the folder's own entries on the disk (a rename in it, say) with `flush`. True at once on
// a system that keeps no such thing apart from the files.
bool flushFolderToDisk(const char* path, DiskFlush flush = flushToDisk);

std::optional<std::string> currentFolder();
// The absolute path of an existing file or folder, without links, "." or "..".
std::optional<std::string> resolvePath(const char* path);

}  // namespace qm
