#include "tools/mdfgen/bus_traffic.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <utility>

namespace qm {
namespace {

constexpr int kFrames = 50000;

TEST(BusTraffic, FramesComeInTimeOrderAndNeverShareABus) {
  BusTraffic traffic(1);
  std::uint64_t last_time = 0;
  std::map<int, std::uint64_t> last_on_bus;
  for (int i = 0; i < kFrames; ++i) {
    const BusEvent& frame = traffic.next();
    ASSERT_GE(frame.time_us, last_time);
    last_time = frame.time_us;
    int bus = frame.kind == FrameKind::kLin ? 100 : frame.bus_channel;
    auto it = last_on_bus.find(bus);
    if (it != last_on_bus.end()) {
      ASSERT_GT(frame.time_us, it->second) << "two frames at once on bus " << bus;
    }
    last_on_bus[bus] = frame.time_us;
  }
  EXPECT_EQ(last_on_bus.size(), 3u);
}

TEST(BusTraffic, FrameFieldsAreThoseABusCanCarry) {
  BusTraffic traffic(2);
  for (int i = 0; i < kFrames; ++i) {
    const BusEvent& f = traffic.next();
    SCOPED_TRACE(i);
    switch (f.kind) {
      case FrameKind::kCanData:
        ASSERT_EQ(canLengthForDlc(f.dlc), f.data_length);
        ASSERT_TRUE(f.edl || f.data_length <= 8);
        ASSERT_TRUE(f.edl || (!f.brs && !f.esi));
        ASSERT_LT(f.id, f.ide ? 1u << 29 : 1u << 11);
        break;
      case FrameKind::kCanRemote:
        ASSERT_EQ(f.dlc, f.data_length);
        ASSERT_LE(f.data_length, 8);
        ASSERT_FALSE(f.edl);
        break;
      case FrameKind::kLin:
        ASSERT_LT(f.id, 0x3Cu);
        ASSERT_TRUE(f.data_length == 2 || f.data_length == 4 || f.data_length == 8);
        ASSERT_TRUE(f.received_count == 0 || f.received_count == f.data_length);
        break;
    }
  }
}

TEST(BusTraffic, ReusesAFixedSetOfIdsWithChangingPayloads) {
  BusTraffic traffic(3);
  std::set<std::pair<int, std::uint32_t>> ids;
  std::map<std::uint32_t, std::set<std::uint64_t>> payloads;  // first 8 bytes per CAN id
  bool saw_fd = false;
  for (int i = 0; i < kFrames; ++i) {
    const BusEvent& f = traffic.next();
    ids.insert({static_cast<int>(f.kind) * 16 + f.bus_channel, f.id});
    saw_fd = saw_fd || f.data_length > 8;
    if (f.kind != FrameKind::kCanData) continue;
    std::uint64_t head = 0;
    for (int b = 0; b < 8 && b < f.data_length; ++b) head |= static_cast<std::uint64_t>(f.data[b]) << (8 * b);
    payloads[f.id].insert(head);
  }
  EXPECT_EQ(ids.size(), traffic.messageCount());
  EXPECT_TRUE(saw_fd);
  int changing = 0;
  for (const auto& entry : payloads) changing += entry.second.size() > 1;
  EXPECT_GT(changing, static_cast<int>(payloads.size()) / 2);
}

TEST(CanDlc, FdLengthsMapToTheirCodes) {
  EXPECT_EQ(canDlcForLength(8), 8);
  EXPECT_EQ(canDlcForLength(12), 9);
  EXPECT_EQ(canDlcForLength(64), 15);
  EXPECT_EQ(canDlcForLength(13), 10);  // rounds up to the next FD length
  for (std::uint8_t dlc = 0; dlc < 16; ++dlc) EXPECT_EQ(canDlcForLength(canLengthForDlc(dlc)), dlc);
}

}  // namespace
}  // namespace qm
