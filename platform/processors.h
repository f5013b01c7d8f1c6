#pragma once
// The processors the process may keep busy.

namespace qm {

// The processors this process may run on (its affinity, which `taskset` or a container may
// narrow), and no more than the processor time a container's quota allows; at least 1. Asks
// the system on every call.
unsigned countUsableProcessors();

}  // namespace qm
