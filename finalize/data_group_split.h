#pragma once
// Splitting one unsorted data group into one sorted data group per channel group.
#include <vector>

#include "finalize/record_loss.h"
#include "mdf/block.h"

namespace qm {

class DataGroupBlock;

// Whether the group can stay as it is: no record ids and a single channel group.
bool isAlreadySorted(const DataGroupBlock& group);

// Collects each channel group's payloads from the group's records (the sort table), and appends
// the new data groups to `split_off` in channel-group order. A VLSD channel group becomes a signal data
// block linked from the channel that refers to it in the last group split off here; when no
// such channel exists, it and every channel group behind it stay with the old group and are
// dropped with it. Records from the first one whose id no channel group claims are dropped.
// What is dropped goes into `report`, when given. With `salvage`, the records behind damaged
// stretches are recovered instead (see collectPayloads and repairSalvagedRecords), and the
// stretches go into `report` too.
void splitDataGroup(DataGroupBlock& group, std::vector<BlockRef>& split_off, LossReport* report = nullptr,
                    bool salvage = false);

}  // namespace qm
