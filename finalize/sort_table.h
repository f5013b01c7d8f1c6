#pragma once
// The sort table of one unsorted data group: for every record id, the payloads of its channel
// group in record order, collected from the group's records.
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/hash_map.h"
#include "finalize/record_loss.h"
#include "finalize/sorted_payloads.h"
#include "stream/stream.h"

namespace qm {

class DataGroupBlock;

// The payloads of one channel group, and which scanning thread notes them. The lane lies
// outside the payloads, which the other thread writes to.
struct SortEntry {
  std::unique_ptr<SortedPayloads> payloads;
  unsigned lane = 0;
};

// Record id -> the payloads of that channel group, in record order.
using SortTable = HashMap<std::uint64_t, SortEntry>;

// A damaged stretch that salvaging skipped in one data group, what it counts as lost, and how
// many payload bytes each channel group (by record id) had collected when the scan reached it.
struct SalvagedStretch {
  SkippedStretch stretch;
  RecordLoss loss;
  // The id of the record the scan took right before the stretch: the damage may have begun
  // inside it, where its id and length still read.
  std::optional<std::uint64_t> record_before;
  // The ids of the first records of the segments before and behind the stretch, in order.
  std::vector<std::uint64_t> lead_before;
  std::vector<std::uint64_t> lead_after;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> collected;
};

// One entry per channel group, the first of several with one record id keeping it, filled from
// the group's records up to the first one that cannot be read (the first whose id no channel
// group claims, for instance). What that drops goes into `report`, when given. With `salvaged`
// given, the scan instead goes on behind each damaged stretch, and the stretches go there, in
// the order of the data; `report` then gets only the losses of other kinds.
SortTable collectPayloads(const DataGroupBlock& group, LossReport* report = nullptr,
                          std::vector<SalvagedStretch>* salvaged = nullptr);

// Takes a channel group's payloads out of the table as the stream of a data or signal data
// block; an empty stream when the id has none (left) in the table.
std::unique_ptr<Stream> takeStream(SortTable& table, std::uint64_t record_id);

}  // namespace qm
