#include "tools/mdfgen/frame_records.h"

#include <cstring>

#include "tools/mdfgen/little_endian.h"

namespace qm {
namespace {

constexpr std::uint8_t kValue = 0;
constexpr std::uint8_t kVariable = 1;
constexpr std::uint8_t kMaster = 2;
constexpr std::uint8_t kUnsigned = 0;
constexpr std::uint8_t kByteArray = 10;

std::vector<GroupSpec> makeGroups() {
  using F = FrameField;
  std::vector<GroupSpec> groups;
  // Identifier and flags are packed the way loggers store them: 29 identifier bits with the
  // IDE flag in the top bit, the DLC in a nibble beside the one-bit flags.
  groups.push_back({"CAN_DataFrame", FrameKind::kCanData, 1, 23, 2, false,
                    {{"Timestamp", F::kTimestamp, kMaster, kUnsigned, 0, 0, 64},
                     {"CAN_DataFrame.BusChannel", F::kBusChannel, kValue, kUnsigned, 8, 0, 8},
                     {"CAN_DataFrame.ID", F::kId, kValue, kUnsigned, 9, 0, 29},
                     {"CAN_DataFrame.IDE", F::kIde, kValue, kUnsigned, 12, 7, 1},
                     {"CAN_DataFrame.DLC", F::kDlc, kValue, kUnsigned, 13, 0, 4},
                     {"CAN_DataFrame.DataLength", F::kDataLength, kValue, kUnsigned, 14, 0, 8},
                     {"CAN_DataFrame.Dir", F::kDir, kValue, kUnsigned, 13, 4, 1},
                     {"CAN_DataFrame.EDL", F::kEdl, kValue, kUnsigned, 13, 5, 1},
                     {"CAN_DataFrame.BRS", F::kBrs, kValue, kUnsigned, 13, 6, 1},
                     {"CAN_DataFrame.ESI", F::kEsi, kValue, kUnsigned, 13, 7, 1},
                     {"CAN_DataFrame.DataBytes", F::kDataBytes, kVariable, kByteArray, 15, 0, 64}}});
  groups.push_back({"CAN_DataFrame", FrameKind::kCanData, 2, 0, 2, true, {}});
  groups.push_back({"CAN_RemoteFrame", FrameKind::kCanRemote, 3, 15, 2, false,
                    {{"Timestamp", F::kTimestamp, kMaster, kUnsigned, 0, 0, 64},
                     {"CAN_RemoteFrame.BusChannel", F::kBusChannel, kValue, kUnsigned, 8, 0, 8},
                     {"CAN_RemoteFrame.ID", F::kId, kValue, kUnsigned, 9, 0, 29},
                     {"CAN_RemoteFrame.IDE", F::kIde, kValue, kUnsigned, 12, 7, 1},
                     {"CAN_RemoteFrame.DLC", F::kDlc, kValue, kUnsigned, 13, 0, 4},
                     {"CAN_RemoteFrame.Dir", F::kDir, kValue, kUnsigned, 13, 4, 1},
                     {"CAN_RemoteFrame.DataLength", F::kDataLength, kValue, kUnsigned, 14, 0, 8}}});
  groups.push_back({"LIN_Frame", FrameKind::kLin, 4, 20, 3, false,
                    {{"Timestamp", F::kTimestamp, kMaster, kUnsigned, 0, 0, 64},
                     {"LIN_Frame.BusChannel", F::kBusChannel, kValue, kUnsigned, 8, 0, 8},
                     {"LIN_Frame.ID", F::kId, kValue, kUnsigned, 9, 0, 6},
                     {"LIN_Frame.Dir", F::kDir, kValue, kUnsigned, 9, 7, 1},
                     {"LIN_Frame.ReceivedDataByteCount", F::kReceivedCount, kValue, kUnsigned, 10, 0, 8},
                     {"LIN_Frame.DataLength", F::kDataLength, kValue, kUnsigned, 11, 0, 8},
                     {"LIN_Frame.DataBytes", F::kDataBytes, kValue, kByteArray, 12, 0, 64}}});
  return groups;
}

std::uint64_t fieldValue(FrameField field, const BusEvent& frame) {
  switch (field) {
    case FrameField::kTimestamp: return frame.time_us;
    case FrameField::kBusChannel: return frame.bus_channel;
    case FrameField::kId: return frame.id;
    case FrameField::kIde: return frame.ide;
    case FrameField::kDlc: return frame.dlc;
    case FrameField::kDataLength: return frame.data_length;
    case FrameField::kDir: return frame.dir;
    case FrameField::kEdl: return frame.edl;
    case FrameField::kBrs: return frame.brs;
    case FrameField::kEsi: return frame.esi;
    case FrameField::kReceivedCount: return frame.received_count;
    case FrameField::kDataBytes: return 0;
  }
  return 0;
}

}  // namespace

const std::vector<GroupSpec>& loggedGroups() {
  static const std::vector<GroupSpec> groups = makeGroups();
  return groups;
}

LoggedGroup groupOfFrame(FrameKind kind) {
  switch (kind) {
    case FrameKind::kCanData: return kCanDataGroup;
    case FrameKind::kCanRemote: return kCanRemoteGroup;
    case FrameKind::kLin: return kLinGroup;
  }
  return kCanDataGroup;
}

void encodeRecord(const GroupSpec& group, const BusEvent& frame, std::uint64_t data_offset, unsigned char* record) {
  for (const ChannelSpec& channel : group.channels) {
    std::uint32_t position = channel.byte_offset * 8 + channel.bit_offset;
    if (channel.field != FrameField::kDataBytes) {
      putBits(record, position, channel.bit_count, fieldValue(channel.field, frame));
    } else if (channel.channel_type == kVariable) {
      putBits(record, position, channel.bit_count, data_offset);
    } else {
      std::memcpy(record + channel.byte_offset, frame.data, channel.bit_count / 8);
    }
  }
}

}  // namespace qm
