#pragma once
// The block tree a bus logger writes: ID, header with comment and file history, and either one
// unsorted data group holding all channel groups (as the logger leaves it) or one sorted data
// group per channel group with the frame payloads in a signal data block (a finalized file).
#include <array>
#include <cstdint>
#include <string>

#include "tools/mdfgen/block_plan.h"
#include "tools/mdfgen/frame_records.h"

namespace qm {

// The unfinalized flags a logger leaves: cycle counters (bit 0), last DT length (bit 2) and
// variable-length data sizes (bit 5) still to be updated.
inline constexpr std::uint16_t kLoggerUnfinalizedFlags = 0x0025;

struct GroupTotals {
  std::array<std::uint64_t, kLoggedGroupCount> records{};
  std::array<std::uint64_t, kLoggedGroupCount> payload_bytes{};  // bytes of the group's data
};

struct LoggerLayout {
  BlockPlan plan;
  // Payload block of each group: the shared DT of the unsorted file, or each group's own DT
  // (and the SD block for the variable-length group) in a sorted file.
  std::array<int, kLoggedGroupCount> payload_block{};
};

// `totals` matter only for a sorted file (cycle counts and payload sizes).
LoggerLayout planLoggerFile(bool sorted, std::uint64_t seed, const GroupTotals& totals);

// The 64-byte identification block; a damaged one carries a file id no reader accepts.
std::string identificationBlock(bool finalized, bool damaged = false);

}  // namespace qm
