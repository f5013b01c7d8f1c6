#pragma once
// The channel groups a bus logger records and how one frame becomes one record of its group:
// CAN data frames (payload in a variable-length signal data group right behind them), CAN
// remote frames and LIN frames. The same table describes the channels written into the file
// and the bits the encoder fills, so the two cannot drift apart.
#include <cstdint>
#include <string_view>
#include <vector>

#include "tools/mdfgen/bus_traffic.h"

namespace qm {

enum class FrameField : std::uint8_t {
  kTimestamp,
  kBusChannel,
  kId,
  kIde,
  kDlc,
  kDataLength,
  kDir,
  kEdl,
  kBrs,
  kEsi,
  kDataBytes,
  kReceivedCount,
};

struct ChannelSpec {
  std::string_view name;
  FrameField field;
  std::uint8_t channel_type;  // 0 value, 1 variable-length data, 2 master
  std::uint8_t data_type;     // 0 unsigned little-endian, 10 byte array
  std::uint32_t byte_offset;
  std::uint8_t bit_offset;
  std::uint32_t bit_count;
};

struct GroupSpec {
  std::string_view acquisition_name;
  FrameKind kind;
  std::uint64_t record_id;
  std::uint32_t data_bytes;  // 0 for the variable-length signal data group
  std::uint8_t bus_type;     // 2 CAN, 3 LIN
  bool variable_length;      // holds the DataBytes of the group before it
  std::vector<ChannelSpec> channels;
};

enum LoggedGroup : int { kCanDataGroup = 0, kCanDataBytesGroup = 1, kCanRemoteGroup = 2, kLinGroup = 3, kLoggedGroupCount = 4 };

// The groups in the order of the channel-group chain.
const std::vector<GroupSpec>& loggedGroups();
// The group that records frames of this kind (never the variable-length group).
LoggedGroup groupOfFrame(FrameKind kind);

// Fills `record` (data_bytes of the group, zeroed by the caller) from the frame;
// `data_offset` is where the frame's payload starts in the variable-length data.
void encodeRecord(const GroupSpec& group, const BusEvent& frame, std::uint64_t data_offset, unsigned char* record);

// Size of a variable-length value: 4-byte length plus the payload.
inline std::uint64_t variableValueSize(const BusEvent& frame) { return 4 + frame.data_length; }

}  // namespace qm
