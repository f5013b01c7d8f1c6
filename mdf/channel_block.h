#pragma once
// A channel: where one signal lies in the records of its group and the blocks that name,
// convert and document it.
#include <cstdint>

#include "mdf/chain_block.h"

namespace qm {

// Channel kind derived from the channel type.
enum ChannelKind : std::uint8_t {
  kChannelFixedLength = 0,
  kChannelVariableLength = 1,  // VLSD: values in an SD block or a VLSD channel group
  kChannelMaster = 2,
  kChannelVirtualData = 6,
  kChannelUnsupported = 7,
};

// Value class derived from the data type: the data type plus one for the supported types.
enum ValueClass : std::uint8_t {
  kValueUnsupported = 0,
  kValueUnsignedLittleEndian = 1,  // data type 0
  kValueFloatLittleEndian = 5,     // data type 4
  kValueByteArray = 11,            // data type 10
};

ChannelKind channelKindOf(std::uint8_t channel_type);
ValueClass valueClassOf(std::uint8_t data_type);

class ChannelBlock : public ChainBlock {
 public:
  static constexpr BlockType kType = BlockType::kCN;
  static constexpr std::uint64_t kFieldsEnd = 160;
  ChannelBlock() : ChainBlock(kType) {}

  // `next` is the channel this one links to. Logs when the output does not end where the
  // block's length says.
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  BlockList composition;
  BlockRef name;        // TX
  BlockRef source;      // SI
  BlockRef conversion;  // CC
  BlockRef data;        // SD block or VLSD channel group for a variable-length channel
  BlockRef unit;        // TX or MD
  BlockRef comment;     // TX or MD
  std::uint8_t channel_type = 0;
  std::uint8_t sync_type = 0;
  std::uint8_t data_type = 0;
  std::uint8_t bit_offset = 0;
  std::uint32_t byte_offset = 0;
  std::uint32_t bit_count = 0;
  std::uint32_t flags = 0;
  std::uint32_t invalidation_bit_position = 0;
  std::uint8_t precision = 0;
  std::uint16_t attachment_count = 0;
  double value_range_min = 0.0;
  double value_range_max = 0.0;
  double limit_min = 0.0;
  double limit_max = 0.0;
  double extended_limit_min = 0.0;
  double extended_limit_max = 0.0;
  ChannelKind channel_kind = kChannelFixedLength;
  ValueClass value_class = kValueUnsupported;

 protected:
  bool loadOwnContent(LoadContext& ctx, Stream* stream, const std::vector<std::uint64_t>& links,
                      std::int64_t fields_position) override;
};

}  // namespace qm
