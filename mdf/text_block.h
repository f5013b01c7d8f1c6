#pragma once
// Text (TX) and XML metadata (MD) blocks: the data section held whole, zero bytes included.
#include <string_view>

#include "base/small_string.h"
#include "mdf/block.h"

namespace qm {

class TextBlock : public Block {
 public:
  static constexpr BlockType kType = BlockType::kTX;
  TextBlock() : Block(kType) {}

  bool load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list) override;
  // Length := 24 + every stored byte; the padding to a multiple of 8 is not written.
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  // The text up to its first zero byte.
  std::string_view plainText() const;

  SmallString text;

 protected:
  explicit TextBlock(BlockType type) : Block(type) {}
};

class MetadataBlock : public TextBlock {
 public:
  static constexpr BlockType kType = BlockType::kMD;
  MetadataBlock() : TextBlock(kType) {}
};

// The plain text of a TX or MD block, empty for anything else.
std::string_view textOf(const Block* block);
inline std::string_view textOf(const BlockRef& block) { return textOf(block.get()); }

}  // namespace qm
