#pragma once
// An output that carries its final name only once it is complete. It is written under a
// temporary name beside its final place (`<final>.partial`, which no run takes for an input)
// and renamed when everything was written, so a crash or a kill at any moment leaves at most
// that temporary file, never a partial output under the final name. A durable output is also
// flushed to the disk before the rename and its folder after it, so that once `commit` returned
// true even a power cut keeps it: only then may its input be removed.
#include <memory>
#include <string_view>

#include "base/small_string.h"
#include "stream/directory_handle.h"
#include "stream/file_stream.h"
#include "output/pending_outputs.h"
#include "platform/file.h"

namespace qm {

inline constexpr std::string_view kPartialSuffix = ".partial";

class OutputFile {
 public:
  // How a file or folder is flushed to the disk: flushToDisk, or a stand-in that tests make fail.
  using SyncFunction = DiskFlush;

  // Opens the temporary file of `final_path` (relative to `directory`) for writing, replacing a
  // leftover of an earlier run. Null, with the system's reason in lastSystemError(), when it
  // cannot be created.
  static std::unique_ptr<OutputFile> create(const DirectoryHandle& directory, std::string_view final_path,
                                            bool durable, SyncFunction sync = flushToDisk);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  // Removes the temporary file unless the output was committed.
  ~OutputFile();

  Stream* stream() { return file_.get(); }
  // Everything was written: closes the file (flushed first when durable), gives it its final
  // name (then flushes the folder when durable). On failure logs the file and the system's
  // reason and returns false; the temporary file is removed.
  bool commit();
  // The output cannot be completed: logs the system's reason if a write failed, and removes
  // the temporary file.
  void abandon();

 private:
  OutputFile(const DirectoryHandle& directory, std::string_view final_path, bool durable, SyncFunction sync);
  bool closeFile();
  bool syncFolder();
  void removeTemporary();

  const DirectoryHandle& directory_;
  SmallString final_path_;
  SmallString temporary_path_;
  PendingOutput pending_;  // noted before the file exists, forgotten once it is renamed or gone
  std::unique_ptr<FileStream> file_;
  bool durable_;
  SyncFunction sync_;
  bool done_ = false;  // committed or removed
};

}  // namespace qm
