#pragma once
// A channel conversion: raw to physical values, described by a type and its parameters.
#include <cstdint>
#include <vector>

#include "mdf/block.h"

namespace qm {

class ConversionBlock : public Block {
 public:
  static constexpr BlockType kType = BlockType::kCC;
  ConversionBlock() : Block(kType) {}

  // Exactly 4 links; conversions with reference links (value-to-text tables) do not load.
  bool load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list) override;
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  BlockRef name;     // TX
  BlockRef unit;     // TX or MD
  BlockRef comment;  // TX or MD
  BlockRef inverse;  // CC
  std::uint8_t conversion_type = 0;
  std::uint8_t precision = 0;
  std::uint16_t flags = 0;
  std::uint16_t reference_count = 0;
  std::uint16_t value_count = 0;
  double physical_min = 0.0;
  double physical_max = 0.0;
  std::vector<double> values;  // value_count parameters
};

}  // namespace qm
