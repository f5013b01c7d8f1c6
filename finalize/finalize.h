#pragma once
// Turning an unfinalized MDF4 tree into a finalized one and writing it out.
#include <cstdint>

#include "finalize/record_loss.h"
#include "stream/stream.h"

namespace qm {

class MdfFile;

// Standard unfinalized flag bits the engine acts on.
inline constexpr std::uint16_t kFlagCycleCounts = 0x0001;
inline constexpr std::uint16_t kFlagLastDataBlockLength = 0x0004;
inline constexpr std::uint16_t kFlagVlsdDataBytes = 0x0020;

// Sorts every unsorted data group into one data group per channel group (appended at the end
// of the header's list), computes their cycle counts, turns VLSD channel groups into signal
// data blocks and clears flag bits 0 and 5. Returns true, touching nothing, when the standard
// unfinalized flags are already 0; false after sorting (and for a null file). Complete records
// the sort had to drop are described in `report`, when given. With `salvage`, the records behind
// damaged stretches of data are recovered (see splitDataGroup).
bool finalize(MdfFile* file, LossReport* report = nullptr, bool salvage = false);

// Writes the whole tree to the output from position 0; true when the identification block
// (and with it the rest of the tree) was saved.
bool saveFinalized(MdfFile* file, Stream* output);

}  // namespace qm
