#include "tools/mdfgen/bus_traffic.h"

#include <algorithm>
#include <cstring>

namespace qm {
namespace {

constexpr std::uint8_t kFdLengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
constexpr std::uint8_t kFdPayloadChoices[] = {8, 12, 16, 20, 24, 32, 48, 64};
// Cycle times of a typical vehicle network, fast ones more common.
constexpr std::uint32_t kPeriodsMs[] = {10, 10, 20, 20, 50, 100, 100, 100, 200, 500, 1000};
constexpr std::uint32_t kLinSlotUs = 10000;
constexpr int kLinBus = 2;

}  // namespace

std::uint8_t canDlcForLength(std::uint8_t length) {
  for (std::uint8_t dlc = 0; dlc < 16; ++dlc) {
    if (kFdLengths[dlc] >= length) return dlc;
  }
  return 15;
}

std::uint8_t canLengthForDlc(std::uint8_t dlc) { return kFdLengths[dlc & 15]; }

BusTraffic::BusTraffic(std::uint64_t seed) : random_(seed) {
  addCanBus(1, false, 24);
  addCanBus(2, true, 16);
  addRemoteRequests(1, 2);
  addLinSchedule(1, 8);
}

std::uint32_t BusTraffic::pickPeriodUs() {
  return kPeriodsMs[random_.below(sizeof kPeriodsMs / sizeof kPeriodsMs[0])] * 1000;
}

std::uint32_t BusTraffic::uniqueId(std::uint32_t low, std::uint32_t high) {
  for (;;) {
    std::uint32_t id = random_.between(low, high);
    if (std::find(used_ids_.begin(), used_ids_.end(), id) == used_ids_.end()) {
      used_ids_.push_back(id);
      return id;
    }
  }
}

void BusTraffic::addMessage(Message message, std::uint64_t first_due) {
  chooseRoles(message);
  messages_.push_back(message);
  due_.push({first_due, static_cast<std::uint32_t>(messages_.size() - 1)});
}

void BusTraffic::addCanBus(std::uint8_t channel, bool fd, int message_count) {
  for (int i = 0; i < message_count; ++i) {
    Message m;
    m.frame.kind = FrameKind::kCanData;
    m.frame.bus_channel = channel;
    m.frame.ide = random_.chance(8);
    m.frame.id = m.frame.ide ? uniqueId(0x18F00000, 0x18FFFFFF) : uniqueId(0x080, 0x6FF);
    m.frame.dir = random_.chance(10);
    m.frame.edl = fd && !random_.chance(4);
    m.frame.brs = m.frame.edl && !random_.chance(5);
    if (m.frame.edl) {
      m.frame.data_length = kFdPayloadChoices[random_.below(sizeof kFdPayloadChoices)];
    } else {
      m.frame.data_length = static_cast<std::uint8_t>(random_.chance(4) ? random_.between(1, 7) : 8);
    }
    m.frame.dlc = canDlcForLength(m.frame.data_length);
    m.period_us = pickPeriodUs();
    addMessage(m, random_.below(std::min<std::uint32_t>(m.period_us, 20000)));
  }
}

void BusTraffic::addRemoteRequests(std::uint8_t channel, int count) {
  for (int i = 0; i < count; ++i) {
    Message m;
    m.frame.kind = FrameKind::kCanRemote;
    m.frame.bus_channel = channel;
    m.frame.id = uniqueId(0x700, 0x7EF);
    m.frame.dir = true;
    m.frame.data_length = static_cast<std::uint8_t>(random_.between(1, 8));
    m.frame.dlc = m.frame.data_length;
    m.period_us = random_.chance(2) ? 500000 : 1000000;
    addMessage(m, random_.below(20000));
  }
}

void BusTraffic::addLinSchedule(std::uint8_t channel, int slot_count) {
  std::uint8_t ids[0x3C];
  for (std::uint8_t i = 0; i < 0x3C; ++i) ids[i] = i;
  for (int slot = 0; slot < slot_count; ++slot) {
    std::swap(ids[slot], ids[slot + static_cast<int>(random_.below(static_cast<std::uint32_t>(0x3C - slot)))]);
    Message m;
    m.frame.kind = FrameKind::kLin;
    m.frame.bus_channel = channel;
    m.frame.id = ids[slot];
    m.frame.dir = random_.chance(4);
    static constexpr std::uint8_t kLinLengths[] = {2, 4, 8, 8};
    m.frame.data_length = kLinLengths[random_.below(4)];
    m.frame.received_count = m.frame.data_length;
    m.period_us = kLinSlotUs * static_cast<std::uint32_t>(slot_count);
    addMessage(m, static_cast<std::uint64_t>(slot) * kLinSlotUs);
  }
}

void BusTraffic::chooseRoles(Message& m) {
  int length = m.frame.kind == FrameKind::kCanRemote ? 0 : m.frame.data_length;
  int pair = 0;
  for (int i = 0; i < length; ++i) {
    std::uint32_t pick = random_.below(10);
    if (i == 0 && pick < 5) {
      m.roles[i] = kCounter;
      m.constants[i] = static_cast<std::uint8_t>(random_.below(16) << 4);
    } else if (i == length - 1 && length >= 4 && pick < 3) {
      m.roles[i] = kChecksum;
    } else if (i + 1 < length && pick < 4) {
      m.roles[i] = kSignalLow;
      m.roles[i + 1] = kSignalHigh;
      m.constants[i] = m.constants[i + 1] = static_cast<std::uint8_t>(pair++);
      ++i;
    } else if (pick == 9) {
      m.roles[i] = kNoise;
    } else {
      m.roles[i] = kConstant;
      std::uint32_t kind = random_.below(10);
      m.constants[i] = kind < 5 ? 0x00 : kind < 7 ? 0xFF : static_cast<std::uint8_t>(random_.below(256));
    }
  }
  m.signal = static_cast<std::uint16_t>(random_.next());
  m.step = static_cast<std::int16_t>(random_.between(1, 60));
}

void BusTraffic::fillPayload(Message& m, BusEvent& event) {
  int length = event.data_length;
  if (event.kind == FrameKind::kCanRemote) return;
  if (event.kind == FrameKind::kLin) {
    // Now and then the slave does not answer: the header goes out, no data comes back.
    event.received_count = random_.chance(500) ? 0 : event.data_length;
    if (event.received_count == 0) return;
  }
  if (event.edl) event.esi = random_.chance(2000);
  ++m.counter;
  if (random_.chance(200)) m.step = static_cast<std::int16_t>(-m.step);
  m.signal = static_cast<std::uint16_t>(m.signal + m.step);
  std::uint8_t checksum = static_cast<std::uint8_t>(event.id);
  int checksum_at = -1;
  for (int i = 0; i < length; ++i) {
    std::uint16_t value = static_cast<std::uint16_t>(m.signal * (m.constants[i] + 1) + m.constants[i] * 0x0F0F);
    std::uint8_t byte = 0;
    switch (m.roles[i]) {
      case kConstant: byte = m.constants[i]; break;
      case kCounter: byte = static_cast<std::uint8_t>(m.constants[i] | (m.counter & 0x0F)); break;
      case kSignalLow: byte = static_cast<std::uint8_t>(value); break;
      case kSignalHigh: byte = static_cast<std::uint8_t>(value >> 8); break;
      case kNoise: byte = static_cast<std::uint8_t>(random_.next()); break;
      case kChecksum: checksum_at = i; break;
    }
    event.data[i] = byte;
    checksum ^= byte;
  }
  if (checksum_at >= 0) event.data[checksum_at] = checksum;
}

int BusTraffic::busIndex(const BusEvent& frame) const {
  if (frame.kind == FrameKind::kLin) return kLinBus;
  return frame.bus_channel == 1 ? 0 : 1;
}

std::uint32_t BusTraffic::frameDurationUs(const BusEvent& frame) {
  std::uint32_t bytes = frame.kind == FrameKind::kCanRemote ? 0 : frame.data_length;
  if (frame.kind == FrameKind::kLin) {
    // 19.2 kbit/s, header plus data and checksum as 10-bit characters, with inter-byte space.
    return (34 + 10 * (bytes + 1)) * 52 * 14 / 10;
  }
  std::uint32_t arbitration_bits = frame.ide ? 40 : 20;
  if (frame.edl) {
    // Arbitration at 500 kbit/s, data phase at 2 Mbit/s when the bit rate is switched.
    std::uint32_t data_bits = 30 + 8 * bytes;
    return arbitration_bits * 2 + (frame.brs ? data_bits / 2 : data_bits * 2);
  }
  // Classic frame at 500 kbit/s with about 10 % stuff bits.
  return (arbitration_bits + 27 + 8 * bytes) * 22 / 10;
}

const BusEvent& BusTraffic::next() {
  for (;;) {
    Due due = due_.top();
    due_.pop();
    Message& m = messages_[due.second];
    Bus& bus = buses_[busIndex(m.frame)];
    if (bus.busy_until > due.first) {
      // Lost arbitration or the bus is still busy: try again once it is free.
      due_.push({bus.busy_until, due.second});
      continue;
    }
    current_ = m.frame;
    current_.time_us = due.first;
    fillPayload(m, current_);
    bus.busy_until = due.first + frameDurationUs(current_);
    std::uint64_t next_due = due.first + m.period_us;
    if (m.frame.kind != FrameKind::kLin) {
      std::uint32_t jitter = m.period_us / 50;
      next_due = next_due - jitter / 2 + random_.below(jitter + 1);
    }
    due_.push({next_due, due.second});
    return current_;
  }
}

}  // namespace qm
