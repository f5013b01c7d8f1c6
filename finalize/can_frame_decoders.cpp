#include <algorithm>
#include <cstring>

#include "finalize/frame_decoders.h"
#include "finalize/frame_rules.h"

namespace qm {

namespace {

bool flagOf(const ChannelValue& value) { return doubleToUnsigned(value.number) != 0; }
std::uint8_t lowByteOf(const ChannelValue& value) { return static_cast<std::uint8_t>(doubleToInt32(value.number)); }

void storeId(BusFrame& f, const ChannelValue& v) { f.id |= static_cast<std::uint32_t>(doubleToUnsigned(v.number)); }
void storeDataBytes(BusFrame& f, const ChannelValue& v) {
  std::memcpy(f.data_bytes, v.bytes, std::min(v.byte_count, BusFrame::kCanDataCapacity));
}
void storeIde(BusFrame& f, const ChannelValue& v) { f.ide = flagOf(v); }
void storeDir(BusFrame& f, const ChannelValue& v) { f.dir = flagOf(v); }
void storeEdl(BusFrame& f, const ChannelValue& v) { f.edl = flagOf(v); }
void storeEsi(BusFrame& f, const ChannelValue& v) { f.esi = flagOf(v); }
void storeBrs(BusFrame& f, const ChannelValue& v) { f.brs = flagOf(v); }
void storeBusChannel(BusFrame& f, const ChannelValue& v) { f.bus_channel = lowByteOf(v); }
void storeDlc(BusFrame& f, const ChannelValue& v) { f.dlc = lowByteOf(v); }
void storeDataLength(BusFrame& f, const ChannelValue& v) { f.data_length = doubleToUnsigned(v.number) & 0xFF; }
void storeTimestamp(BusFrame& f, const ChannelValue& v) { f.timestamp = v.number; }

constexpr FrameRule kCanDataRules[] = {
    {"CAN_DataFrame.ID", storeId},
    {"CAN_DataFrame.DataBytes", storeDataBytes},
    {"CAN_DataFrame.IDE", storeIde},
    {"CAN_DataFrame.Dir", storeDir},
    {"CAN_DataFrame.EDL", storeEdl},
    {"CAN_DataFrame.ESI", storeEsi},
    {"CAN_DataFrame.BRS", storeBrs},
    {"CAN_DataFrame.BusChannel", storeBusChannel},
    {"CAN_DataFrame.DLC", storeDlc},
    {"CAN_DataFrame.DataLength", storeDataLength},
    {"Timestamp", storeTimestamp},
};

constexpr FrameRule kCanRemoteRules[] = {
    {"CAN_RemoteFrame.ID", storeId},
    {"CAN_RemoteFrame.IDE", storeIde},
    {"CAN_RemoteFrame.Dir", storeDir},
    {"CAN_RemoteFrame.BusChannel", storeBusChannel},
    {"CAN_RemoteFrame.DLC", storeDlc},
    {"CAN_RemoteFrame.DataLength", storeDataLength},
    {"Timestamp", storeTimestamp},
};

constexpr FrameRuleSet kCanData = {kCanDataRules, std::size(kCanDataRules), kFrameCan, kDecoderCanData,
                                   false, false, false};
constexpr FrameRuleSet kCanRemote = {kCanRemoteRules, std::size(kCanRemoteRules), kFrameCan, kDecoderCanRemote,
                                     true, false, false};

}  // namespace

std::uint8_t decodeCanDataFrame(FrameRecord& record, BusFrame& frame) { return decodeWithRules(kCanData, record, frame); }

std::uint8_t decodeCanRemoteFrame(FrameRecord& record, BusFrame& frame) {
  return decodeWithRules(kCanRemote, record, frame);
}

}  // namespace qm
