#pragma once
// What the process has used so far: processor time and memory.
#include <cstdint>

namespace qm {

struct ProcessorTime {
  double user_seconds = 0;    // running the program's own code
  double system_seconds = 0;  // in the system on the program's behalf
};

// Processor time of every thread of the process since it started; zeros when the system does
// not tell.
ProcessorTime processorTimeSoFar();

// The most memory the process has held resident at once, in bytes; 0 when the system does
// not tell.
std::uint64_t peakResidentBytes();

}  // namespace qm
