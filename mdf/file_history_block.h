#pragma once
// A file history entry: when and by what the file was changed (the comment says it).
#include <cstdint>

#include "mdf/chain_block.h"

namespace qm {

class FileHistoryBlock : public ChainBlock {
 public:
  static constexpr BlockType kType = BlockType::kFH;
  FileHistoryBlock() : ChainBlock(kType) {}

  std::uint8_t save(SaveContext& ctx, Block* next) override;

  BlockRef comment;  // MD
  std::uint64_t time = 0;  // nanoseconds
  std::int16_t time_zone_offset = 0;  // minutes
  std::int16_t daylight_saving_offset = 0;  // minutes
  std::uint8_t time_flags = 0;

 protected:
  bool loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                      std::int64_t fields_position) override;
};

}  // namespace qm
