#include "mdf/block_factory.h"

#include <limits>
#include <vector>

#include "base/log.h"
#include "mdf/chain_block.h"
#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/conversion_block.h"
#include "mdf/data_group_block.h"
#include "mdf/file_history_block.h"
#include "mdf/header_block.h"
#include "mdf/id_block.h"
#include "mdf/payload_block.h"
#include "mdf/source_block.h"
#include "mdf/text_block.h"

namespace qm {
namespace {

// A block whose header has been read and whose object exists, but which is not loaded yet.
struct OpenedBlock {
  BlockRef block;
  BlockHeader header;
  std::uint64_t offset = 0;
};

bool isPayload(BlockType type) { return type == BlockType::kDT || type == BlockType::kSD; }
bool isText(BlockType type) { return type == BlockType::kTX || type == BlockType::kMD; }

// A block must lie within the stream: the save places the next block behind it by its length.
// A data block's length may be wrong in an unfinalized file, so it is only cut back to what the
// stream holds. A text's length sizes its buffer, so it must at least cover its header. A
// fixed-size block may declare less than its fields take: they are read at their offsets all
// the same (a read past the end of the stream still fails), and it is saved with that length.
bool checkLength(const LoadContext& ctx, std::uint64_t offset, BlockHeader& header) {
  if (header.type == BlockType::kId) return true;
  std::uint64_t available = ctx.bytesFrom(offset);
  if (isPayload(header.type)) {
    if (header.length > available) header.length = available;
    return true;
  }
  if (isText(header.type) && header.length < kBlockHeaderSize) return false;
  return header.length <= available;
}

std::optional<OpenedBlock> openBlockAt(LoadContext& ctx, Stream* stream, std::uint64_t offset) {
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
  if (!setPosition(stream, static_cast<std::int64_t>(offset))) return std::nullopt;
  std::optional<BlockHeader> header = readBlockHeader(stream);
  if (!header || !checkLength(ctx, offset, *header)) return std::nullopt;
  BlockRef block = createBlock(header->type);
  if (!block) {
    QM_LOG_E("Could not parse block at offset %llu", static_cast<unsigned long long>(offset));
    return std::nullopt;
  }
  block->header = *header;
  block->file_position = offset;
  return OpenedBlock{std::move(block), *header, offset};
}

// A link into a block whose load has not finished, or one level too deep: the file is refused.
void reportUnloadable(std::uint64_t offset) {
  QM_LOG_E("Could not parse block at offset %llu", static_cast<unsigned long long>(offset));
}

bool finishLoad(LoadContext& ctx, const OpenedBlock& opened, bool loaded, BlockList* list) {
  ctx.endLoading(opened.offset);
  if (!loaded || !ctx.remember(opened.offset, opened.block)) return false;
  if (list) list->push_front(opened.block);
  return true;
}

// Loads a sibling chain in two passes, the way a recursive load over the "next" links would
// order the work: first the links of every member front to back (the next link is followed
// there), then the content of every member back to front, each member entering the cache and
// the list once its content is done. A loop instead of recursion keeps long chains off the
// call stack.
BlockRef loadChain(LoadContext& ctx, Stream* stream, OpenedBlock first, BlockList* list) {
  std::vector<OpenedBlock> members;
  BlockRef cached_tail;  // an already loaded block the chain runs into
  bool ok = true;
  OpenedBlock current = std::move(first);
  for (;;) {
    ctx.beginLoading(current.offset);
    members.push_back(current);
    ChainBlock* chain = current.block->asChain();
    if (!chain) break;  // a block of another type at the end of the chain is loaded whole below
    if (!chain->readOwnLinks(ctx, stream, current.header)) {
      ok = false;
      break;
    }
    std::uint64_t next = chain->nextLink();
    if (next == kNoBlock) break;
    if ((cached_tail = ctx.cached(next))) break;
    if (ctx.isLoading(next)) {
      reportUnloadable(next);
      ok = false;
      break;
    }
    std::optional<OpenedBlock> opened = openBlockAt(ctx, stream, next);
    if (!opened) {
      ok = false;
      break;
    }
    current = std::move(*opened);
  }
  if (ok && cached_tail && list) list->push_front(cached_tail);
  for (std::size_t i = members.size(); i-- > 0;) {
    OpenedBlock& member = members[i];
    if (ok) {
      ChainBlock* chain = member.block->asChain();
      ok = chain ? chain->loadContent(ctx, stream) : member.block->load(ctx, stream, member.header, list);
    }
    ok = finishLoad(ctx, member, ok, list);
  }
  return ok ? members.front().block : BlockRef{};
}

BlockRef loadUncached(LoadContext& ctx, Stream* stream, std::uint64_t offset, BlockList* list) {
  std::optional<OpenedBlock> opened = openBlockAt(ctx, stream, offset);
  if (!opened) return {};
  if (opened->block->asChain()) return loadChain(ctx, stream, std::move(*opened), list);
  ctx.beginLoading(offset);
  bool loaded = opened->block->load(ctx, stream, opened->header, list);
  return finishLoad(ctx, *opened, loaded, list) ? opened->block : BlockRef{};
}

}  // namespace

BlockRef createBlock(BlockType type) {
  switch (type) {
    case BlockType::kId:
      return std::make_shared<IdBlock>();
    case BlockType::kCC:
      return std::make_shared<ConversionBlock>();
    case BlockType::kCG:
      return std::make_shared<ChannelGroupBlock>();
    case BlockType::kCN:
      return std::make_shared<ChannelBlock>();
    case BlockType::kDG:
      return std::make_shared<DataGroupBlock>();
    case BlockType::kDT:
    case BlockType::kSD:
      return std::make_shared<PayloadBlock>(type);
    case BlockType::kFH:
      return std::make_shared<FileHistoryBlock>();
    case BlockType::kHD:
      return std::make_shared<HeaderBlock>();
    case BlockType::kMD:
      return std::make_shared<MetadataBlock>();
    case BlockType::kSI:
      return std::make_shared<SourceBlock>();
    case BlockType::kTX:
      return std::make_shared<TextBlock>();
    case BlockType::kUnknown:
      break;
  }
  return nullptr;
}

BlockRef loadBlock(LoadContext& ctx, Stream* stream, std::uint64_t offset, BlockList* list) {
  if (offset == kNoBlock) return {};
  if (BlockRef hit = ctx.cached(offset)) {
    if (list) list->push_front(hit);
    return hit;
  }
  if (ctx.isLoading(offset) || !ctx.enterNesting()) {
    reportUnloadable(offset);
    return {};
  }
  BlockRef block = loadUncached(ctx, stream, offset, list);
  ctx.leaveNesting();
  return block;
}

bool loadBlockInto(LoadContext& ctx, Stream* stream, std::uint64_t offset, BlockList* list) {
  return loadBlock(ctx, stream, offset, list) != nullptr;
}

BlockRef loadSingle(LoadContext& ctx, Stream* stream, std::uint64_t offset) {
  return loadBlock(ctx, stream, offset, nullptr);
}

bool loadLinkInto(LoadContext& ctx, Stream* stream, std::uint64_t link, BlockList* list) {
  return link == kNoBlock || loadBlockInto(ctx, stream, link, list);
}

bool loadLinkSingle(LoadContext& ctx, Stream* stream, std::uint64_t link, BlockRef* out) {
  out->reset();
  if (link == kNoBlock) return true;
  *out = loadSingle(ctx, stream, link);
  return *out != nullptr;
}

}  // namespace qm
