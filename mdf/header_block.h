#pragma once
// The header block at offset 64: root of the data groups, the file history and the comment.
#include <cstdint>

#include "mdf/block.h"

namespace qm {

class HeaderBlock : public Block {
 public:
  static constexpr BlockType kType = BlockType::kHD;
  HeaderBlock() : Block(kType) {}

  // Channel hierarchies, attachments and events are refused ("Unsupported parameter present in
  // file"), after the data groups and file history were loaded.
  bool load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list) override;
  // Fails unless the running position is 64.
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  BlockList data_groups;
  BlockList file_history;
  BlockRef comment;  // TX or MD
  std::uint64_t start_time = 0;  // nanoseconds
  std::int16_t time_zone_offset = 0;  // minutes
  std::int16_t daylight_saving_offset = 0;  // minutes
  std::uint8_t time_flags = 0;
  std::uint8_t time_quality = 0;
  std::uint8_t flags = 0;
  double start_angle = 0.0;
  double start_distance = 0.0;
};

}  // namespace qm
