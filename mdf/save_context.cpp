#include "mdf/save_context.h"

#include "base/log.h"
#include "stream/stream_reader.h"

namespace qm {

std::uint8_t saveBlock(Block* block, SaveContext& ctx, Block* next) {
  if (!block) return 0;
  if (ctx.saved.contains(block)) return 1;
  std::uint8_t result = block->save(ctx, next);
  if (result == 1) ctx.saved.insert(block);
  return result;
}

void placeBlock(Block& block, SaveContext& ctx, bool round_to_eight) {
  block.file_position = ctx.position;
  ctx.position += block.header.length;
  if (round_to_eight) ctx.position = (ctx.position + 7) & ~std::uint64_t{7};
}

bool saveChain(const BlockList& list, SaveContext& ctx, std::uint64_t* first) {
  bool saved = true;
  Block* previous = nullptr;
  for (const BlockRef& member : list) {
    if (!member) continue;
    saved = saveBlock(member.get(), ctx, previous) == 1 && saved;
    previous = member.get();
  }
  *first = linkTo(previous);
  return saved;
}

bool saveChild(const BlockRef& child, SaveContext& ctx, std::uint64_t* link) {
  if (!child) {
    *link = 0;
    return true;
  }
  bool saved = saveBlock(child.get(), ctx, nullptr) == 1;
  *link = child->file_position;
  return saved;
}

bool writeHeaderAndLinks(const Block& block, SaveContext& ctx, const std::vector<std::uint64_t>& links) {
  if (links.size() != block.header.link_count) return false;
  if (!setPosition(ctx.stream, static_cast<std::int64_t>(block.file_position))) return false;
  if (!writeBlockHeader(&block, ctx.stream)) return false;
  StreamReader writer(ctx.stream);
  for (std::uint64_t link : links) {
    if (!writer.write(link)) return false;
  }
  return true;
}

void checkSavePosition(const Block& block, SaveContext& ctx) {
  std::uint64_t expected = block.file_position + block.header.length;
  std::int64_t actual = streamTell(ctx.stream);
  if (actual < 0 || static_cast<std::uint64_t>(actual) != expected) {
    QM_LOG_E("Error during save. Expected to be at %zu but stream is at %zu", static_cast<std::size_t>(expected),
             static_cast<std::size_t>(actual));
  }
}

}  // namespace qm
