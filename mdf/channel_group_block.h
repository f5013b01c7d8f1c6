#pragma once
// A channel group: one kind of record (its record id, count, sizes) and its channels.
#include <cstdint>

#include "mdf/chain_block.h"
#include "mdf/record_layout.h"

namespace qm {

inline constexpr std::uint16_t kChannelGroupVlsd = 0x0001;
inline constexpr std::uint16_t kChannelGroupBusEvent = 0x0002;
inline constexpr std::uint16_t kChannelGroupPlainBusEvent = 0x0004;

class ChannelGroupBlock : public ChainBlock {
 public:
  static constexpr BlockType kType = BlockType::kCG;
  ChannelGroupBlock() : ChainBlock(kType) {}

  // `next` is the channel group this one links to.
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  // Sets the three booleans from the flags (done by the load).
  void deriveFlags();

  BlockList channels;
  BlockRef acquisition_name;    // TX
  BlockRef acquisition_source;  // SI
  BlockRef comment;             // TX or MD
  std::uint64_t record_id = 0;
  std::uint64_t cycle_count = 0;
  std::uint16_t flags = 0;
  std::uint16_t path_separator = 0;
  std::uint32_t data_bytes = 0;
  std::uint32_t invalidation_bytes = 0;
  bool is_vlsd = false;             // flags bit 0: variable-length signal data group
  bool is_bus_event = false;        // flags bit 1
  bool is_plain_bus_event = false;  // flags bit 2
  ChannelLayoutList channel_layouts;  // built by the finalization's hook

 protected:
  // A sample reduction link is refused ("Unsupported parameter present in file") after the
  // channels and the name and source links were loaded.
  bool loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                      std::int64_t fields_position) override;
};

}  // namespace qm
