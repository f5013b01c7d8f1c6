#pragma once
// The limits a container or a service manager puts on the process through its control group,
// read where Linux shows them: control groups of the current kind, or of the older kind many
// hosts still run. The group's own limits and those of every group above it apply.
#include <cstdint>
#include <string>

namespace qm {

// Where the control group files are mounted and where the process's membership is listed;
// tests give folders of their own.
struct ControlGroupPlace {
  std::string root = "/sys/fs/cgroup";
  std::string membership = "/proc/self/cgroup";
};

// Bytes of memory the group may use; UINT64_MAX when no limit is set (or none can be read).
std::uint64_t controlGroupMemoryLimit(const ControlGroupPlace& place = {});

// Processor time the group may use, in whole processors rounded up (a quota of 1.5 processors
// keeps two busy part of the time); 0 when no quota is set (or none can be read).
unsigned controlGroupProcessorQuota(const ControlGroupPlace& place = {});

}  // namespace qm
