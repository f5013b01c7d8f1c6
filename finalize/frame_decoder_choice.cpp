#include <string_view>

#include "base/hash_map.h"
#include "finalize/frame_decoders.h"

namespace qm {

namespace {

struct PrefixDecoder {
  std::string_view prefix;
  std::uint8_t number;
  FrameDecoder decoder;
};

// Matched in this order by exact length and bytes.
constexpr PrefixDecoder kPrefixDecoders[] = {
    {"CAN_DataFrame", kDecoderCanData, decodeCanDataFrame},
    {"CAN_RemoteFrame", kDecoderCanRemote, decodeCanRemoteFrame},
    {"CAN_ErrorFrame", kDecoderCanError, decodeNothing},
    {"LIN_Frame", kDecoderLinFrame, decodeLinFrame},
    {"LIN_ChecksumError", kDecoderLinChecksumError, decodeNothing},
    {"LIN_ReceiveError", kDecoderLinReceiveError, decodeNothing},
    {"LIN_SyncError", kDecoderLinSyncError, decodeNothing},
    {"LIN_TransmissionError", kDecoderLinTransmissionError, decodeNothing},
};

}  // namespace

std::uint8_t decodeNothing(FrameRecord&, BusFrame& frame) {
  frame.frame_kind = kFrameNone;
  return kDecoderNotDecoded;
}

FrameDecoder frameDecoderFor(std::uint8_t number) {
  for (const PrefixDecoder& entry : kPrefixDecoders) {
    if (entry.number == number) return entry.decoder;
  }
  return decodeNothing;
}

bool classifyFrameChannels(const ChannelLayoutList& channels, FrameDecoder* decoder, std::uint8_t* number) {
  HashSet<SmallString> prefixes;
  std::string_view prefix;
  for (const ChannelLayout& channel : channels) {
    std::string_view name = channel.name.view();
    std::size_t dot = name.find('.');
    if (dot == std::string_view::npos) continue;
    prefix = name.substr(0, dot);
    prefixes.insert(prefix);
  }
  if (prefixes.size() != 1) return false;
  PrefixDecoder chosen{prefix, kDecoderPlain, decodeNothing};
  for (const PrefixDecoder& entry : kPrefixDecoders) {
    if (entry.prefix == prefix) {
      chosen = entry;
      break;
    }
  }
  if (decoder) *decoder = chosen.decoder;
  if (number) *number = chosen.number;
  return true;
}

}  // namespace qm
