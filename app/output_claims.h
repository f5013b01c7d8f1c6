#pragma once
// Keeps one run from losing a file through its own outputs. Two inputs that would write the same
// output (x.MF4 and x.MFC in one folder) must not both be converted: the second would replace
// the first's output, and with deletion asked for both inputs would be gone. Likewise an output
// must not replace a file of a walked folder that the run has still to convert. The walk claims
// each output before the file is converted, in walk order, so the outcome does not depend on
// which conversion finishes first. Paths are compared in their resolved form, so that two
// spellings of one folder are one folder.
#include <string_view>
#include <vector>

#include "base/hash_map.h"
#include "base/small_string.h"
#include "stream/directory_handle.h"

namespace qm {

class OutputClaims {
 public:
  // The accepted files of a listed folder are still to be converted.
  void notePendingFolder(const DirectoryHandle& root, std::string_view folder,
                         const std::vector<DirectoryEntry>& entries);
  // One input named on the command line is still to be converted.
  void notePendingFile(const DirectoryHandle& root, std::string_view input_path);

  // `input_path` (under `root`) has `output_path` (under `output_root`) for its output. True
  // when no earlier input of the run has the same output; otherwise logs why at error level.
  // Either way the input is no longer pending.
  bool claim(const DirectoryHandle& root, std::string_view input_path, const DirectoryHandle& output_root,
             std::string_view output_path);
  // The claimed output is about to be written: true when that replaces no file the run has
  // still to convert; otherwise logs why at error level.
  bool mayWrite(std::string_view input_path, const DirectoryHandle& output_root, std::string_view output_path);

 private:
  HashMap<SmallString, SmallString> pending_inputs_;  // resolved input -> as the walk names it
  HashMap<SmallString, SmallString> written_outputs_;  // resolved output -> the input writing it
};

// `relative` under `directory` with its folder resolved (links, "..", "."), or as joined when
// the folder cannot be resolved.
SmallString resolvedPath(const DirectoryHandle& directory, std::string_view relative);

}  // namespace qm
