#pragma once
// The rule-table engine shared by the frame decoders: each channel of a bus-logging group is a
// rule whose name says which frame field its value fills.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "finalize/bus_frame.h"
#include "finalize/channel_value.h"

namespace qm {

struct FrameRule {
  std::string_view name;
  void (*store)(BusFrame& frame, const ChannelValue& value);
};

struct FrameRuleSet {
  const FrameRule* rules;
  std::size_t rule_count;
  std::uint32_t frame_kind;
  std::uint8_t success;              // the decoder's number
  bool remote;                       // set before decoding (CAN remote frames)
  bool stop_at_variable_data;        // a signal-data byte array ends the scan (LIN)
  bool print_unknown_rules;          // an unmatched name is printed on standard output (LIN)
};

// Zeroes the frame and fills it channel by channel. A name that matches no rule fails the frame
// but the scan goes on; a failed frame has no data and length 0.
std::uint8_t decodeWithRules(const FrameRuleSet& set, FrameRecord& record, BusFrame& frame);

}  // namespace qm
