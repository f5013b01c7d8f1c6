#pragma once
// After the records behind damaged stretches were salvaged, the data group's records are made
// consistent: damaged bytes that still parse as records are told by their times and references,
// and references into variable-length values are made to land on the values the output holds.
#include <vector>

#include "finalize/record_loss.h"
#include "finalize/sort_table.h"

namespace qm {

class DataGroupBlock;

// Drops the record right before each stretch (the damage may have begun inside it, behind its
// id and length). For every fixed-length channel group of `group` with a master channel, drops
// the records whose time breaks the group's order. For every channel whose values lie in a variable-length
// group of `group`, learns per undamaged segment how far the lost values moved the offsets
// after them, and drops the records whose value is not there or out of order; when that
// channel is the group's only referrer, the values no kept record names are dropped too. Each
// reference is rewritten to its value's place in the output. Groups it touches are copied, so
// this runs only for data groups where stretches were skipped. What it drops goes into
// `report` (when given) and is taken off the records counted after each stretch.
void repairSalvagedRecords(const DataGroupBlock& group, SortTable& table, std::vector<SalvagedStretch>& salvaged,
                           LossReport* report);

}  // namespace qm
