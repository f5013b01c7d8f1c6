#pragma once
// The block tree of a file under construction: blocks are added as zeroed byte images, linked
// by index, given offsets in the order they were added (8-byte aligned) and then written.
// Payload blocks (DT, SD) hold only their header; their bytes are streamed by the caller.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/mdfgen/byte_sink.h"

namespace qm {

class BlockPlan {
 public:
  static constexpr int kNone = -1;

  // A block of `length` bytes ("##XY" id, `link_count` links, zeroed data section).
  int add(std::string_view id, int link_count, std::uint32_t length);
  // A TX or MD block holding the text, zero-terminated and padded to a multiple of 8.
  int addText(std::string_view id, std::string_view text);
  // A DT or SD block whose payload of `payload_size` bytes the caller writes behind its header.
  int addPayload(std::string_view id, std::uint64_t payload_size);

  void link(int from, int slot, int to);
  // Field access by offset from the block's start, as block layouts are documented.
  void putU8(int block, std::uint32_t offset, std::uint8_t value) { put(block, offset, value, 1); }
  void putU16(int block, std::uint32_t offset, std::uint16_t value) { put(block, offset, value, 2); }
  void putU32(int block, std::uint32_t offset, std::uint32_t value) { put(block, offset, value, 4); }
  void putU64(int block, std::uint32_t offset, std::uint64_t value) { put(block, offset, value, 8); }
  void putI16(int block, std::uint32_t offset, std::int16_t value) { put(block, offset, static_cast<std::uint16_t>(value), 2); }
  void putF64(int block, std::uint32_t offset, double value);
  // The length written into a payload block's header when it differs from its real length
  // (a logger that did not update it).
  void setDeclaredLength(int block, std::uint64_t length) { blocks_[block].declared_length = length; }

  // Gives every block its offset from `start` on; returns the end of the last block.
  std::uint64_t layout(std::uint64_t start);
  std::uint64_t offsetOf(int block) const { return blocks_[block].offset; }
  std::uint64_t lengthOf(int block) const { return blocks_[block].length; }
  int size() const { return static_cast<int>(blocks_.size()); }
  bool isPayload(int block) const { return blocks_[block].payload; }

  // Writes the block (for payload blocks only the header) at its planned offset; the sink must
  // not have passed that offset yet, the gap is zero-filled.
  bool write(int block, ByteSink& sink) const;
  // Writes every block that is not a payload block, in offset order, up to the first payload block.
  bool writeUpToPayload(ByteSink& sink) const;

 private:
  struct Draft {
    std::string bytes;
    std::vector<int> links;
    std::uint64_t length = 0;
    std::uint64_t declared_length = 0;
    std::uint64_t offset = 0;
    bool payload = false;
  };
  void put(int block, std::uint32_t offset, std::uint64_t value, int bytes);

  std::vector<Draft> blocks_;
};

}  // namespace qm
