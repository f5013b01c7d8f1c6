#pragma once
// The output folders of a run's folder inputs. When one lies inside a walked folder
// (`quillmend .`, or `-O logs logs`), walking into it would convert the run's own outputs, and
// every later run would nest them deeper; the walk never enters them. They follow from the
// arguments alone, so whether a folder is skipped never depends on what earlier runs left.
#include <string_view>
#include <vector>

#include "app/converter_job.h"
#include "base/hash_map.h"
#include "base/small_string.h"

namespace qm {

class OwnOutputFolders {
 public:
  OwnOutputFolders(const ConverterJob& job, const std::vector<SmallString>& inputs);

  // Whether `folder` (a path under the input root) is one of them.
  bool contains(std::string_view folder) const;

 private:
  const DirectoryHandle& root_;
  HashMap<SmallString, bool> resolved_;  // resolved output folder paths
};

}  // namespace qm
