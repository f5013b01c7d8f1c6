#pragma once
// The sort table of one unsorted data group: for every record id, the payloads of its channel
// group in record order, collected from the group's records.
#include <cstdint>
#include <memory>

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

// One entry per channel group, the first of several with one record id keeping it, filled from
// the group's records up to the first one whose id no channel group claims. What that drops
// goes into `report`, when given.
SortTable collectPayloads(const DataGroupBlock& group, LossReport* report = nullptr);

// Takes a channel group's payloads out of the table as the stream of a data or signal data
// block; an empty stream when the id has none (left) in the table.
std::unique_ptr<Stream> takeStream(SortTable& table, std::uint64_t record_id);

}  // namespace qm
