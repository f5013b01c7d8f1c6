#pragma once
// Loading blocks by file offset: header, object of the right type, its load, the cache.
#include <cstdint>

#include "mdf/block.h"
#include "mdf/load_context.h"

namespace qm {

// Makes an empty block object of the type (null for kUnknown).
BlockRef createBlock(BlockType type);

// The block at `offset`, or empty (kNoBlock, seek miss, unknown id, failed load, cycle, too
// deep). With a list, the block is pushed at its front; a chain of siblings linked by link 0 is
// loaded whole and lands in the list in chain order.
BlockRef loadBlock(LoadContext& ctx, Stream* stream, std::uint64_t offset, BlockList* list);
// The factory with the handle dropped; true if a block was obtained.
bool loadBlockInto(LoadContext& ctx, Stream* stream, std::uint64_t offset, BlockList* list);
// The factory without a list, for links to one block.
BlockRef loadSingle(LoadContext& ctx, Stream* stream, std::uint64_t offset);

// Link helpers for the loaders: a link that is kNoBlock succeeds with nothing loaded; a set link
// succeeds only if its block loaded.
bool loadLinkInto(LoadContext& ctx, Stream* stream, std::uint64_t link, BlockList* list);
bool loadLinkSingle(LoadContext& ctx, Stream* stream, std::uint64_t link, BlockRef* out);

}  // namespace qm
