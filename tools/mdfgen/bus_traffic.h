#pragma once
// A logger's view of its buses: two CAN buses (one classic, one CAN FD) and one LIN bus, each
// with a fixed set of periodic messages whose payloads carry counters, slowly moving signals,
// constants and checksums, in time order across all buses. Deterministic for a given seed.
#include <cstdint>
#include <queue>
#include <utility>
#include <vector>

#include "tools/mdfgen/random_source.h"

namespace qm {

enum class FrameKind : std::uint8_t { kCanData, kCanRemote, kLin };

struct BusEvent {
  FrameKind kind = FrameKind::kCanData;
  std::uint64_t time_us = 0;
  std::uint8_t bus_channel = 0;
  std::uint32_t id = 0;
  bool ide = false;  // 29-bit identifier
  bool dir = false;  // sent by the logger itself
  bool edl = false;  // CAN FD frame
  bool brs = false;
  bool esi = false;
  std::uint8_t dlc = 0;
  std::uint8_t data_length = 0;     // bytes carried, or requested by a remote frame
  std::uint8_t received_count = 0;  // LIN: bytes the responder actually sent
  std::uint8_t data[64] = {};
};

// The CAN FD lengths and their data length codes.
std::uint8_t canDlcForLength(std::uint8_t length);
std::uint8_t canLengthForDlc(std::uint8_t dlc);

class BusTraffic {
 public:
  explicit BusTraffic(std::uint64_t seed);

  // The next frame on any bus; frames come in non-decreasing time order.
  const BusEvent& next();
  std::size_t messageCount() const { return messages_.size(); }

 private:
  enum ByteRole : std::uint8_t { kConstant, kCounter, kSignalLow, kSignalHigh, kNoise, kChecksum };
  struct Message {
    BusEvent frame;  // the fixed fields; time and data are filled per frame
    std::uint32_t period_us = 0;
    std::uint8_t roles[64] = {};
    std::uint8_t constants[64] = {};
    std::uint8_t counter = 0;
    std::uint16_t signal = 0;
    std::int16_t step = 0;
  };
  struct Bus {
    std::uint64_t busy_until = 0;
  };
  using Due = std::pair<std::uint64_t, std::uint32_t>;  // time, message index

  void addCanBus(std::uint8_t channel, bool fd, int message_count);
  void addRemoteRequests(std::uint8_t channel, int count);
  void addLinSchedule(std::uint8_t channel, int slot_count);
  void addMessage(Message message, std::uint64_t first_due);
  void chooseRoles(Message& message);
  void fillPayload(Message& message, BusEvent& event);
  std::uint32_t pickPeriodUs();
  std::uint32_t uniqueId(std::uint32_t low, std::uint32_t high);
  static std::uint32_t frameDurationUs(const BusEvent& frame);
  int busIndex(const BusEvent& frame) const;

  RandomSource random_;
  std::vector<Message> messages_;
  std::vector<std::uint32_t> used_ids_;
  Bus buses_[3];
  std::priority_queue<Due, std::vector<Due>, std::greater<Due>> due_;
  BusEvent current_;
};

}  // namespace qm
