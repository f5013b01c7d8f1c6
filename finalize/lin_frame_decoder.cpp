#include <algorithm>
#include <cstring>

#include "finalize/frame_decoders.h"
#include "finalize/frame_rules.h"

namespace qm {

namespace {

std::uint8_t lowByteOf(const ChannelValue& value) { return static_cast<std::uint8_t>(doubleToInt32(value.number)); }

void storeId(BusFrame& f, const ChannelValue& v) { f.id |= static_cast<std::uint32_t>(doubleToUnsigned(v.number)); }
void storeDataBytes(BusFrame& f, const ChannelValue& v) {
  std::memcpy(f.data_bytes, v.bytes, std::min(v.byte_count, BusFrame::kLinDataCapacity));
}
// Unlike the CAN flags, the LIN direction is tested on the double itself.
void storeDir(BusFrame& f, const ChannelValue& v) { f.dir = v.number != 0.0; }
void storeBusChannel(BusFrame& f, const ChannelValue& v) { f.bus_channel = lowByteOf(v); }
void storeReceivedCount(BusFrame& f, const ChannelValue& v) { f.received_data_byte_count = lowByteOf(v); }
void storeDataLength(BusFrame& f, const ChannelValue& v) { f.data_length = doubleToUnsigned(v.number) & 0xFF; }
void storeTimestamp(BusFrame& f, const ChannelValue& v) { f.timestamp = v.number; }

constexpr FrameRule kLinRules[] = {
    {"LIN_Frame.ID", storeId},
    {"LIN_Frame.DataBytes", storeDataBytes},
    {"LIN_Frame.Dir", storeDir},
    {"LIN_Frame.BusChannel", storeBusChannel},
    {"LIN_Frame.ReceivedDataByteCount", storeReceivedCount},
    {"LIN_Frame.DataLength", storeDataLength},
    {"Timestamp", storeTimestamp},
};

constexpr FrameRuleSet kLin = {kLinRules, std::size(kLinRules), kFrameLin, kDecoderLinFrame, false, true, true};

}  // namespace

std::uint8_t decodeLinFrame(FrameRecord& record, BusFrame& frame) { return decodeWithRules(kLin, record, frame); }

}  // namespace qm
