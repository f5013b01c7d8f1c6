#include "finalize/finalize.h"

#include <vector>

#include "finalize/data_group_split.h"
#include "mdf/data_group_block.h"
#include "mdf/id_block.h"
#include "mdf/mdf_file.h"

namespace qm {

namespace {

// Replaces every unsorted data group by its split-off groups, which go to the end of the list
// in the order they were made; sorted groups keep their places.
void sortDataGroups(BlockList& data_groups) {
  std::vector<BlockRef> made;
  for (std::size_t i = 0; i < data_groups.size();) {
    DataGroupBlock* group = blockAs<DataGroupBlock>(data_groups[i]);
    if (group == nullptr || isAlreadySorted(*group)) {
      ++i;
      continue;
    }
    splitDataGroup(*group, made);
    data_groups.erase(data_groups.begin() + static_cast<std::ptrdiff_t>(i));
  }
  data_groups.insert(data_groups.end(), made.begin(), made.end());
}

}  // namespace

bool finalize(MdfFile* file) {
  if (file == nullptr) return false;
  IdBlock* id = file->id();
  if (standardUnfinalizedFlags(id) == 0) return true;
  if (BlockList* data_groups = file->dataGroups()) sortDataGroups(*data_groups);
  id->standard_flags &= static_cast<std::uint16_t>(~(kFlagCycleCounts | kFlagVlsdDataBytes));
  return false;
}

bool saveFinalized(MdfFile* file, Stream* output) { return file != nullptr && output != nullptr && file->save(output); }

}  // namespace qm
