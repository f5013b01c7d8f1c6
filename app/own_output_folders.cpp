#include "app/own_output_folders.h"

#include "app/input_walk.h"
#include "app/output_claims.h"

namespace qm {

OwnOutputFolders::OwnOutputFolders(const ConverterJob& job, const std::vector<SmallString>& inputs)
    : root_(*job.root_directory) {
  for (const SmallString& name : inputs) {
    DirectoryEntry entry;
    if (!root_.stat(name.view(), &entry) || entry.type != kEntryDirectory) continue;
    SmallString output = job.options->no_append_root ? name : outputNameForFolder(name.view());
    // The output folder may not exist yet; its parent, the output root, does.
    resolved_.insert(resolvedPath(*job.output_root, output.view()).view(), true);
  }
}

bool OwnOutputFolders::contains(std::string_view folder) const {
  return !resolved_.empty() && resolved_.contains(resolvedPath(root_, folder).view());
}

}  // namespace qm
