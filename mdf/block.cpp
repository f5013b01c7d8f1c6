#include "mdf/block.h"

#include <cstring>

#include "base/log.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

struct BlockTemplate {
  BlockType type;
  const char* code;
  std::uint64_t length;
  std::uint64_t link_count;
};

constexpr BlockTemplate kTemplates[] = {
    {BlockType::kUnknown, "??", 0, 0}, {BlockType::kId, "ID", 64, 0},  {BlockType::kCC, "CC", 80, 4},
    {BlockType::kCG, "CG", 104, 6},    {BlockType::kCN, "CN", 160, 8}, {BlockType::kDG, "DG", 64, 4},
    {BlockType::kDT, "DT", 24, 0},     {BlockType::kFH, "FH", 56, 2},  {BlockType::kHD, "HD", 104, 6},
    {BlockType::kMD, "MD", 24, 0},     {BlockType::kSD, "SD", 24, 0},  {BlockType::kSI, "SI", 56, 3},
    {BlockType::kTX, "TX", 24, 0},
};

const BlockTemplate& templateOf(BlockType type) {
  auto index = static_cast<std::uint32_t>(type);
  return index < std::size(kTemplates) ? kTemplates[index] : kTemplates[0];
}

// The order in which ids are compared: the 4-character ids of the first group, then the 8-byte
// file ids, then the rest.
constexpr BlockType kFirstGroup[] = {BlockType::kCC, BlockType::kCG, BlockType::kCN, BlockType::kDG,
                                     BlockType::kDT, BlockType::kFH, BlockType::kHD};
constexpr BlockType kSecondGroup[] = {BlockType::kMD, BlockType::kSD, BlockType::kSI, BlockType::kTX};

bool hasId(const char* id, BlockType type) {
  const char* code = templateOf(type).code;
  return id[0] == '#' && id[1] == '#' && id[2] == code[0] && id[3] == code[1];
}

BlockType typeOfId(const char* id) {
  for (BlockType type : kFirstGroup) {
    if (hasId(id, type)) return type;
  }
  if (std::memcmp(id, "UnFinMF ", 8) == 0 || std::memcmp(id, "MDF     ", 8) == 0) return BlockType::kId;
  for (BlockType type : kSecondGroup) {
    if (hasId(id, type)) return type;
  }
  return BlockType::kUnknown;
}

}  // namespace

BlockHeader defaultBlockHeader(BlockType type) {
  const BlockTemplate& t = templateOf(type);
  return {t.type, t.length, t.link_count};
}

const char* blockTypeCode(BlockType type) { return templateOf(type).code; }

bool Block::load(LoadContext&, Stream*, const BlockHeader&, BlockList*) { return false; }

std::uint8_t Block::save(SaveContext&, Block*) { return 0; }

std::optional<BlockHeader> readBlockHeader(Stream* stream) {
  StreamReader reader(stream);
  char id[8];
  BlockHeader header;
  if (!reader.readBytes(id, sizeof id) || !reader.read(header.length) || !reader.read(header.link_count)) {
    return std::nullopt;
  }
  header.type = typeOfId(id);
  if (header.type == BlockType::kUnknown) {
    char text[sizeof id + 1] = {};
    std::memcpy(text, id, sizeof id);
    QM_LOG_E("Unable to load block header for type %s", text);
    return std::nullopt;
  }
  if (header.type == BlockType::kId) {
    // The identification block has no header: its load reads from its first byte.
    streamSeek(stream, reader.base(), kSeekSet);
    header.length = templateOf(BlockType::kId).length;
    header.link_count = 0;
  }
  return header;
}

bool writeBlockHeader(const Block* block, Stream* stream) {
  if (!block || !stream || block->type() == BlockType::kId) return false;
  const char* code = blockTypeCode(block->type());
  const char id[8] = {'#', '#', code[0], code[1], 0, 0, 0, 0};
  StreamReader writer(stream);
  return writer.writeBytes(id, sizeof id) && writer.write(block->header.length) &&
         writer.write(block->header.link_count);
}

std::uint64_t dataSectionSize(const BlockHeader& header) {
  if (header.length < kBlockHeaderSize) return 0;
  std::uint64_t rest = header.length - kBlockHeaderSize;
  if (header.link_count > rest / 8) return 0;
  return rest - 8 * header.link_count;
}

bool readLinks(Stream* stream, const BlockHeader& header, std::vector<std::uint64_t>& links) {
  StreamReader reader(stream);
  links.assign(header.link_count, kNoBlock);
  for (std::uint64_t& link : links) {
    std::uint64_t value;
    if (!reader.read(value)) return false;
    link = value == 0 ? kNoBlock : value;
  }
  return true;
}

}  // namespace qm
