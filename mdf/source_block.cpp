#include "mdf/source_block.h"

#include "mdf/block_factory.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

enum SourceLink { kName, kPath, kComment, kLinkCount };

BlockRef SourceBlock::*const kLinks[] = {&SourceBlock::name, &SourceBlock::path, &SourceBlock::comment};

constexpr std::uint8_t kSourceTypeBus = 2;

}  // namespace

SourceClass sourceClassOf(std::uint8_t source_type) {
  return source_type == kSourceTypeBus ? kSourceBus : kSourceOther;
}

BusClass busClassOf(std::uint8_t bus_type) {
  switch (bus_type) {
    case 0:
      return kBusNone;
    case 2:
      return kBusCan;
    case 3:
      return kBusLin;
    default:
      return kBusOther;
  }
}

bool SourceBlock::load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList*) {
  std::vector<std::uint64_t> links;
  if (header.link_count != kLinkCount || !readLinks(stream, header, links)) return false;
  std::int64_t fields_position = streamTell(stream);
  for (std::size_t i = 0; i < std::size(kLinks); ++i) {
    if (!loadLinkSingle(ctx, stream, links[i], &(this->*kLinks[i]))) return false;
  }
  StreamReader reader(stream, fields_position);
  if (!reader.read(source_type) || !reader.read(bus_type) || !reader.read(flags)) return false;
  source_class = sourceClassOf(source_type);
  bus_class = busClassOf(bus_type);
  return true;
}

std::uint8_t SourceBlock::save(SaveContext& ctx, Block*) {
  placeBlock(*this, ctx, false);
  std::vector<std::uint64_t> links(kLinkCount, 0);
  bool children = true;
  for (std::size_t i = 0; i < std::size(kLinks); ++i) {
    children = saveChild(this->*kLinks[i], ctx, &links[i]) && children;
  }
  if (!writeHeaderAndLinks(*this, ctx, links)) return 0;
  StreamReader writer = dataSectionWriter(*this, ctx);
  bool written = writer.write(source_type) && writer.write(bus_type) && writer.write(flags);
  return written && children ? 1 : 0;
}

}  // namespace qm
