#pragma once
// What the finalization needs to know about the records of a data group, held by the blocks:
// a channel group keeps its channel layout list, a data group its map from record id to layout.
// The blocks only hold these; the finalization builds and reads them.
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "base/hash_map.h"
#include "base/small_string.h"

namespace qm {

class Block;
class ChannelGroupBlock;
using BlockRef = std::shared_ptr<Block>;

enum class ValueKind : std::uint32_t { kUnsigned = 0, kByteArray = 1, kFloat = 2 };

// A raw-to-physical conversion carried from a channel's conversion block.
struct Conversion {
  enum class Kind { kLinear, kValueToValue };
  Kind kind = Kind::kLinear;
  double offset = 0.0;  // linear: physical = offset + factor * raw
  double factor = 1.0;
  std::vector<std::pair<double, double>> table;  // value to value: (key, value), first key wins
};

// Where one leaf channel's value lies in a record and how it is read.
struct ChannelLayout {
  std::uint64_t bit_position = 0;  // byte offset * 8 + bit offset, from the start of the payload
  std::uint64_t bit_count = 0;
  ValueKind value_kind = ValueKind::kUnsigned;
  bool little_endian = true;
  std::shared_ptr<const Conversion> conversion;  // none: the value passes through unchanged
  SmallString name;
  BlockRef variable_data;  // a VLSD channel's data link (VLSD channel group, later an SD block)
};

using ChannelLayoutList = std::vector<ChannelLayout>;

// Decoder numbers of the bus-logging frame decoders; 0 is the plain decoder.
enum FrameDecoderNumber : std::uint8_t {
  kDecoderPlain = 0,
  kDecoderCanData = 1,
  kDecoderCanRemote = 2,
  kDecoderCanError = 3,
  kDecoderLinFrame = 4,
  kDecoderLinChecksumError = 5,
  kDecoderLinReceiveError = 6,
  kDecoderLinSyncError = 7,
  kDecoderLinTransmissionError = 8,
  kDecoderNotDecoded = 9,
};

struct RecordLayout {
  std::uint64_t record_id = 0;
  std::int32_t payload_length = 0;  // -1 for a VLSD channel group, else its data bytes
  // The channel group this layout describes; owned by the data group's channel-group list.
  ChannelGroupBlock* channel_group = nullptr;
  std::uint8_t decoder = kDecoderPlain;
  bool has_decoder = true;  // a VLSD channel group gets no decoder at all
};

using RecordLayoutMap = HashMap<std::uint64_t, RecordLayout>;

}  // namespace qm
