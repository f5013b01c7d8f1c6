#pragma once
// The identification block: the first 64 bytes of every MDF4 file. It tells whether the file is
// finalized and holds the header block, the root of the tree.
#include <array>
#include <cstdint>

#include "mdf/block.h"

namespace qm {

class HeaderBlock;

inline constexpr std::uint64_t kIdBlockLength = 64;
// The header block always follows the identification block.
inline constexpr std::uint64_t kHeaderBlockOffset = 64;

class IdBlock : public Block {
 public:
  static constexpr BlockType kType = BlockType::kId;
  IdBlock() : Block(kType) {}

  bool load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list) override;
  // Writes the 64 bytes at offset 0, then the header block; fails unless the running position
  // is 0. The file id follows from the flags: "MDF     " only when both are 0.
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  HeaderBlock* header() const;

  BlockRef header_block;
  std::array<char, 8> version_text{};
  std::array<char, 8> program_id{};
  std::uint16_t version_number = 0;
  std::uint16_t standard_flags = 0;  // standard unfinalized flags
  std::uint16_t custom_flags = 0;    // custom unfinalized flags
};

// The flag fields, 0 for a null block.
std::uint16_t standardUnfinalizedFlags(const IdBlock* id);
std::uint16_t customUnfinalizedFlags(const IdBlock* id);

}  // namespace qm
