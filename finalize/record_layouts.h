#pragma once
// The record layout map of a data group: which record ids its data block holds, how long each
// record's payload is, and which frame decoder reads it.
namespace qm {

class DataGroupBlock;

// Rebuilds the map from the group's channel groups (their channel layout lists must be built).
// The first channel group with a record id keeps it. A group without record ids has its one
// channel group entered under id 0, the id its records are read with.
void rebuildRecordLayouts(DataGroupBlock& group);

}  // namespace qm
