#pragma once
// The bus-logging frame decoders, chosen per channel group by its frame-type prefix.
#include <cstdint>

#include "finalize/bus_frame.h"
#include "mdf/record_layout.h"

namespace qm {

std::uint8_t decodeCanDataFrame(FrameRecord& record, BusFrame& frame);
std::uint8_t decodeCanRemoteFrame(FrameRecord& record, BusFrame& frame);
std::uint8_t decodeLinFrame(FrameRecord& record, BusFrame& frame);
// The plain decoder and the ones for frame types not decoded yet: no frame, nothing read.
std::uint8_t decodeNothing(FrameRecord& record, BusFrame& frame);

// The decoder that belongs to a decoder number (unknown numbers get the plain decoder).
FrameDecoder frameDecoderFor(std::uint8_t number);

// Classifies a channel group by the part before the first "." of its channel names. True when
// exactly one such prefix exists; then both outputs are set (the plain decoder and 0 for a
// prefix no decoder knows). False leaves the outputs untouched.
bool classifyFrameChannels(const ChannelLayoutList& channels, FrameDecoder* decoder, std::uint8_t* number);

}  // namespace qm
