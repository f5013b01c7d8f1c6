#include "finalize/frame_rules.h"

#include <cstdio>

namespace qm {

namespace {

const FrameRule* findRule(const FrameRuleSet& set, std::string_view name) {
  for (std::size_t i = 0; i < set.rule_count; ++i) {
    if (set.rules[i].name == name) return &set.rules[i];
  }
  return nullptr;
}

std::uint8_t failFrame(BusFrame& frame) {
  frame.data = nullptr;
  frame.data_length = 0;
  return kDecoderNotDecoded;
}

}  // namespace

std::uint8_t decodeWithRules(const FrameRuleSet& set, FrameRecord& record, BusFrame& frame) {
  frame = BusFrame{};
  frame.remote = set.remote;
  if (record.channels == nullptr) return failFrame(frame);
  bool ok = true;
  ChannelValue value;
  for (const ChannelLayout& channel : *record.channels) {
    value.number = 0.0;
    value.byte_count = 0;
    if (channel.value_kind == ValueKind::kByteArray && channel.variable_data) {
      if (set.stop_at_variable_data) break;
      if (!readVariableBytes(record, value)) return failFrame(frame);
    } else if (channel.value_kind == ValueKind::kByteArray) {
      readFixedBytes(channel, record.payload, record.payload_length, value);
    } else {
      value.number = readNumericValue(channel, record.payload, record.payload_length);
    }
    const FrameRule* rule = findRule(set, channel.name.view());
    if (rule == nullptr) {
      if (set.print_unknown_rules) {
        std::printf("Unknown rule: %.*s\n", static_cast<int>(channel.name.size()), channel.name.data());
      }
      ok = false;
      continue;
    }
    rule->store(frame, value);
  }
  if (!ok) return failFrame(frame);
  frame.frame_kind = set.frame_kind;
  frame.data = frame.data_bytes;
  return set.success;
}

}  // namespace qm
