#pragma once
// Source information: where the data of a channel or channel group were acquired.
#include <cstdint>

#include "mdf/block.h"

namespace qm {

enum SourceClass : std::uint8_t { kSourceBus = 2, kSourceOther = 6 };
enum BusClass : std::uint8_t { kBusNone = 0, kBusCan = 2, kBusLin = 3, kBusOther = 4 };

SourceClass sourceClassOf(std::uint8_t source_type);
BusClass busClassOf(std::uint8_t bus_type);

class SourceBlock : public Block {
 public:
  static constexpr BlockType kType = BlockType::kSI;
  SourceBlock() : Block(kType) {}

  bool load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list) override;
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  BlockRef name;     // TX
  BlockRef path;     // TX
  BlockRef comment;  // TX or MD
  std::uint8_t source_type = 0;
  std::uint8_t bus_type = 0;
  std::uint8_t flags = 0;
  SourceClass source_class = kSourceOther;
  BusClass bus_class = kBusNone;
};

}  // namespace qm
