#pragma once
// A data group: one data block holding the records of its channel groups.
#include <cstdint>

#include "mdf/chain_block.h"
#include "mdf/record_layout.h"

namespace qm {

class PayloadBlock;

class DataGroupBlock : public ChainBlock {
 public:
  static constexpr BlockType kType = BlockType::kDG;
  DataGroupBlock() : ChainBlock(kType) {}

  // `next` is the data group this one links to.
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  // The data link as a DT/SD block (null when absent or of another type).
  PayloadBlock* dataBlock() const;

  BlockList channel_groups;
  BlockRef data;
  BlockRef comment;  // TX or MD
  std::uint8_t record_id_size = 0;  // bytes of record id in front of each record: 0, 1, 2, 4, 8
  RecordLayoutMap record_layouts;   // built by the finalization's hook

 protected:
  bool loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                      std::int64_t fields_position) override;
};

}  // namespace qm
