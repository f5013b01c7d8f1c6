#include "mdf/text_block.h"

#include "mdf/load_context.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {

bool TextBlock::load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList*) {
  if (header.link_count != 0) return false;
  std::uint64_t size = dataSectionSize(header);
  std::int64_t start = streamTell(stream);
  // Checked before the text grows, so a hostile length cannot allocate beyond the stream.
  if (start < 0 || size > ctx.bytesFrom(static_cast<std::uint64_t>(start))) return false;
  StreamReader reader(stream, start);
  return reader.readText(text, static_cast<std::size_t>(size));
}

std::uint8_t TextBlock::save(SaveContext& ctx, Block*) {
  header.length = kBlockHeaderSize + text.size();
  placeBlock(*this, ctx, true);
  if (!writeHeaderAndLinks(*this, ctx, {})) return 0;
  StreamReader writer = dataSectionWriter(*this, ctx);
  return writer.writeBytes(text.data(), text.size()) ? 1 : 0;
}

std::string_view TextBlock::plainText() const {
  std::string_view all = text.view();
  return all.substr(0, all.find('\0'));
}

std::string_view textOf(const Block* block) {
  if (const TextBlock* t = blockAs<TextBlock>(block)) return t->plainText();
  if (const MetadataBlock* m = blockAs<MetadataBlock>(block)) return m->plainText();
  return {};
}

}  // namespace qm
