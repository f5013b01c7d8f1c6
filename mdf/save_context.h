#pragma once
// One save pass: the output, the running position (next free offset) and the blocks already
// written, plus the placement steps every block's save shares.
#include <cstdint>
#include <vector>

#include "base/hash_map.h"
#include "mdf/block.h"
#include "stream/stream_reader.h"

namespace qm {

struct SaveContext {
  Stream* stream = nullptr;
  std::uint64_t position = 0;
  HashSet<const Block*> saved{};
};

// Saves the block unless it was saved already in this pass (then 1 at once, nothing written);
// a block whose save returned 1 is entered in the saved set. 0 for a null block.
std::uint8_t saveBlock(Block* block, SaveContext& ctx, Block* next);

// Gives the block the running position and advances it by the block's length; variable-size
// blocks (TX, MD, DT, SD) round the running position up to a multiple of 8 afterwards. The gap
// is never written.
void placeBlock(Block& block, SaveContext& ctx, bool round_to_eight);

// The position a link to the block carries: its file position, 0 for none.
inline std::uint64_t linkTo(const Block* block) { return block ? block->file_position : 0; }

// Saves a child list front to back, each member linking to the one saved before it; `first`
// gets the position of the last one saved (0 for an empty list), so the output chain runs in
// the reverse of the list. True if every member saved.
bool saveChain(const BlockList& list, SaveContext& ctx, std::uint64_t* first);
// Saves a single child with nothing as next; `link` gets its position (0 for none).
bool saveChild(const BlockRef& child, SaveContext& ctx, std::uint64_t* link);

// Seeks to the block's position and writes its header and links. Fails (writing nothing) when
// the number of links differs from the block's link count.
bool writeHeaderAndLinks(const Block& block, SaveContext& ctx, const std::vector<std::uint64_t>& links);

// A cursor at the block's data section (behind header and links) in the output.
inline StreamReader dataSectionWriter(const Block& block, SaveContext& ctx) {
  return StreamReader(ctx.stream,
                      static_cast<std::int64_t>(block.file_position + kBlockHeaderSize + 8 * block.header.link_count));
}

// Logs the position mismatch after a channel block was written; reports only.
void checkSavePosition(const Block& block, SaveContext& ctx);

}  // namespace qm
