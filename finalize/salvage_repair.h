#pragma once
// After the records behind damaged stretches were salvaged: the records next to each stretch
// are checked once more, and references into variable-length values are made to land on the
// values as they are in the output.
#include <vector>

#include "finalize/record_loss.h"
#include "finalize/sort_table.h"

namespace qm {

class DataGroupBlock;

// For every fixed-length channel group of `group` with a master channel, drops the records
// just before and just after each stretch whose time runs ahead of the group's next record
// (damaged bytes read as a record). For every channel whose values lie in a variable-length
// group of `group`, learns per undamaged segment how far the lost values moved the offsets
// after them, rewrites each reference to the value's place in the output, and drops records
// whose value is not there. Groups it touches are copied. What it drops goes into `report`
// (when given) and is taken off the records counted after each stretch.
void repairSalvagedRecords(const DataGroupBlock& group, SortTable& table, std::vector<SalvagedStretch>& salvaged,
                           LossReport* report);

}  // namespace qm
