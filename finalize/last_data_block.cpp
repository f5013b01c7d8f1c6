#include "finalize/last_data_block.h"

#include "finalize/finalize.h"
#include "mdf/data_group_block.h"
#include "mdf/id_block.h"
#include "mdf/mdf_file.h"
#include "mdf/payload_block.h"

namespace qm {

namespace {

// The data block placed last in the file; on equal positions the first one met.
PayloadBlock* lastDataBlock(const BlockList& data_groups) {
  PayloadBlock* last = nullptr;
  for (const BlockRef& block : data_groups) {
    const DataGroupBlock* group = blockAs<DataGroupBlock>(block);
    PayloadBlock* data = group ? group->dataBlock() : nullptr;
    if (data && (last == nullptr || data->file_position > last->file_position)) last = data;
  }
  return last;
}

}  // namespace

void fixLastDataBlockLength(MdfFile& file) {
  IdBlock* id = file.id();
  if (id == nullptr || (id->standard_flags & kFlagLastDataBlockLength) == 0) return;
  BlockList* data_groups = file.dataGroups();
  PayloadBlock* last = data_groups ? lastDataBlock(*data_groups) : nullptr;
  std::int64_t size = streamSize(file.stream());
  if (last && size > 0 && static_cast<std::uint64_t>(size) > last->file_position) {
    last->header.length = static_cast<std::uint64_t>(size) - last->file_position;
  }
  id->standard_flags &= static_cast<std::uint16_t>(~kFlagLastDataBlockLength);
}

}  // namespace qm
