#pragma once
// The normalized bus frame that a frame decoder fills from one record of a bus-logging channel
// group, and the view of the record it decodes from.
#include <cstddef>
#include <cstdint>

#include "mdf/record_layout.h"

namespace qm {

enum BusFrameKind : std::uint32_t { kFrameNone = 0, kFrameCan = 1, kFrameLin = 2 };

struct BusFrame {
  static constexpr std::size_t kCanDataCapacity = 64;
  static constexpr std::size_t kLinDataCapacity = 8;

  double timestamp = 0.0;
  std::uint32_t id = 0;                  // decoded values are OR-ed in
  const std::uint8_t* data = nullptr;    // points at data_bytes once decoded; null on failure
  std::uint64_t data_length = 0;         // DataLength value, low 8 bits; 0 on failure
  std::uint32_t frame_kind = kFrameNone;
  bool ide = false;
  bool dir = false;
  bool edl = false;
  bool esi = false;
  bool brs = false;
  bool remote = false;
  std::uint8_t bus_channel = 0;
  std::uint8_t dlc = 0;
  std::uint8_t received_data_byte_count = 0;  // LIN only
  std::uint8_t data_bytes[kCanDataCapacity] = {};  // a LIN frame uses the first 8
};

// One record as a decoder sees it. The variable-length cursor walks the group's signal data
// (length, bytes, length, bytes, ...) and is advanced by each variable-length value read.
struct FrameRecord {
  const std::uint8_t* payload = nullptr;
  std::size_t payload_length = 0;
  const std::uint8_t* variable_data = nullptr;
  std::size_t variable_remaining = 0;
  const ChannelLayoutList* channels = nullptr;
};

// Returns the decoder number on success, kDecoderNotDecoded otherwise.
using FrameDecoder = std::uint8_t (*)(FrameRecord& record, BusFrame& frame);

}  // namespace qm
