#include "finalize/finalize.h"

#include <vector>

#include "finalize/data_group_split.h"
#include "mdf/data_group_block.h"
#include "mdf/id_block.h"
#include "mdf/mdf_file.h"

namespace qm {

namespace {

// Replaces every unsorted data group by its split-off groups, which go to the end of the list
// in the order they were made; sorted groups keep their places. The list is rebuilt in one
// pass, so a file of many data groups never pays for erasing from the middle.
void sortDataGroups(BlockList& data_groups, LossReport* report, bool salvage) {
  BlockList kept;
  std::vector<BlockRef> made;
  for (BlockRef& ref : data_groups) {
    DataGroupBlock* group = blockAs<DataGroupBlock>(ref);
    if (group == nullptr || isAlreadySorted(*group)) {
      kept.push_back(std::move(ref));
      continue;
    }
    splitDataGroup(*group, made, report, salvage);
    ref.reset();  // the old group goes as soon as it is split
  }
  kept.insert(kept.end(), made.begin(), made.end());
  data_groups.swap(kept);
}

}  // namespace

bool finalize(MdfFile* file, LossReport* report, bool salvage) {
  if (file == nullptr) return false;
  IdBlock* id = file->id();
  if (standardUnfinalizedFlags(id) == 0) return true;
  if (BlockList* data_groups = file->dataGroups()) sortDataGroups(*data_groups, report, salvage);
  id->standard_flags &= static_cast<std::uint16_t>(~(kFlagCycleCounts | kFlagVlsdDataBytes));
  return false;
}

bool saveFinalized(MdfFile* file, Stream* output) { return file != nullptr && output != nullptr && file->save(output); }

}  // namespace qm
