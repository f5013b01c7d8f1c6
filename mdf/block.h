#pragma once
// The common part of every MDF4 block: the 24-byte on-disk header, links to other blocks by
// absolute offset, shared ownership through BlockRef and checked access by type.
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "mdf/record_layout.h"
#include "stream/stream.h"

namespace qm {

enum class BlockType : std::uint32_t {
  kUnknown = 0,
  kId = 1,
  kCC = 2,
  kCG = 3,
  kCN = 4,
  kDG = 5,
  kDT = 6,
  kFH = 7,
  kHD = 8,
  kMD = 9,
  kSD = 10,
  kSI = 11,
  kTX = 12,
};

struct BlockHeader {
  BlockType type = BlockType::kUnknown;
  std::uint64_t length = 0;
  std::uint64_t link_count = 0;
};

// A link read as 0 is stored as this value: "no block".
inline constexpr std::uint64_t kNoBlock = ~std::uint64_t{0};
inline constexpr std::uint64_t kBlockHeaderSize = 24;

class Block;
using BlockRef = std::shared_ptr<Block>;
// Grows at its front: the factory pushes each loaded sibling there once its load (and so the
// load of the siblings behind it) has finished, which leaves a chain in chain order.
using BlockList = std::deque<BlockRef>;

class LoadContext;
struct SaveContext;
class ChainBlock;

// Type, default length and default link count of a block type.
BlockHeader defaultBlockHeader(BlockType type);
// The two-letter code ("DG", "TX", ...; "ID" for the identification block, "??" otherwise).
const char* blockTypeCode(BlockType type);

class Block {
 public:
  explicit Block(BlockType type) : header(defaultBlockHeader(type)) {}
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  // Children are held by BlockRef members and lists, so they are released with the block.
  virtual ~Block() = default;

  BlockType type() const { return header.type; }

  // Reads the rest of the block from the stream standing right behind its 24-byte header.
  // Blocks loaded for a caller's list (chain members) may push their siblings into `list`.
  virtual bool load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list);
  // Places the block at the running position, saves its children, writes itself; 1 = success.
  // `next` is the sibling this block links to as its next one (may be null).
  virtual std::uint8_t save(SaveContext& ctx, Block* next);

  // Blocks with a "next" link at link 0 (DG, CG, CN, FH) return themselves here, so the factory
  // can follow long sibling chains in a loop instead of by recursion.
  virtual ChainBlock* asChain() { return nullptr; }

  BlockHeader header;
  std::uint64_t file_position = 0;  // where the block was read from, or last written to
};

// Checked access: the block as T when its type matches, else null. A class that stands for two
// block types (DT and SD) names the second one in kSecondType.
template <class T>
T* blockAs(Block* block) {
  if (!block) return nullptr;
  if constexpr (requires { T::kSecondType; }) {
    if (block->header.type == T::kSecondType) return static_cast<T*>(block);
  }
  return block->header.type == T::kType ? static_cast<T*>(block) : nullptr;
}
template <class T>
const T* blockAs(const Block* block) {
  return blockAs<T>(const_cast<Block*>(block));
}
template <class T>
T* blockAs(const BlockRef& block) {
  return blockAs<T>(block.get());
}

// Reads 24 bytes at the current position. The identification block is recognised by its 8-byte
// file id; the stream is then moved back to its first byte and it gets length 64, no links.
// An unknown id is logged and gives none; a short read gives none silently.
std::optional<BlockHeader> readBlockHeader(Stream* stream);
// Writes id, four zero bytes, length and link count at the current position. Nothing is
// written for a null block or stream, or for the identification block. True if all was written.
bool writeBlockHeader(const Block* block, Stream* stream);
// Length minus header and links; 0 when the length is too small for them.
std::uint64_t dataSectionSize(const BlockHeader& header);
inline std::uint64_t dataSectionSize(const Block* block) { return block ? dataSectionSize(block->header) : 0; }
// Reads header.link_count links from the current position; 0 becomes kNoBlock. True only if
// all were read. The caller checks the link count against its type before calling.
bool readLinks(Stream* stream, const BlockHeader& header, std::vector<std::uint64_t>& links);

}  // namespace qm
