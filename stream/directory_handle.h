#pragma once
// The file-system facility through which every file is found, listed, opened and removed,
// always relative to a root folder.
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "base/small_string.h"
#include "stream/stream.h"

namespace qm {

enum EntryType : int { kEntryOther = 0, kEntryFile = 1, kEntryDirectory = 2, kEntryMissing = 3 };

struct DirectoryEntry {
  SmallString name;
  int type = kEntryOther;
  std::int64_t size = 0;  // only set for regular files
  std::int64_t modified_ns = 0;  // last modification, nanoseconds since the epoch
  std::int64_t changed_ns = 0;   // last change of content or status (a truncation, say), likewise
  std::uint64_t inode = 0;       // tells a file replaced under the same name
};

enum OpenFlags : int { kOpenRead = 1, kOpenWrite = 2 };

class DirectoryHandle {
 public:
  // Null unless the root path names an existing folder.
  static std::unique_ptr<DirectoryHandle> create(std::string_view root_path);

  const SmallString& rootPath() const { return root_path_; }
  // Root, then "/" only when both parts are non-empty, then the relative path. A relative path
  // that starts with a root ("/", on Windows also "C:/" and the like) is absolute and comes back
  // unchanged.
  SmallString join(std::string_view relative) const;
  // A missing path is a success with type kEntryMissing; any other failure gives false.
  bool stat(std::string_view relative, DirectoryEntry* entry) const;
  // Adds the regular files and folders of a folder to the list, which stays sorted by byte-wise
  // name; names already in it are kept as they are. False, with the reason in lastSystemError(),
  // when the folder or one of its entries cannot be read.
  bool list(std::string_view relative, std::vector<DirectoryEntry>* sorted) const;
  // The same without the "ls:" line, for looking ahead of the walk without logging it twice.
  bool listQuietly(std::string_view relative, std::vector<DirectoryEntry>* sorted) const;
  bool makeDirectory(std::string_view relative) const;
  bool removeFile(std::string_view relative) const;
  // Flags: kOpenRead and/or kOpenWrite; neither gives null.
  std::unique_ptr<Stream> open(std::string_view relative, int flags) const;

 private:
  explicit DirectoryHandle(std::string_view root_path) : root_path_(root_path) {}

  SmallString root_path_;
};

}  // namespace qm
