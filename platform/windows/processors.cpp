#include "platform/processors.h"

#include <windows.h>

#include <algorithm>
#include <bit>
#include <cstdint>

namespace qm {
namespace {

// Windows 10's headers name the limits by a minimum and a maximum rate, which MinGW's lack: the
// maximum is then the upper half of the rate field.
constexpr DWORD kCpuRateMinMax = 0x10;

unsigned processorsOfTheMachine() {
  const DWORD all = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
  return all == 0 ? 1 : static_cast<unsigned>(all);
}

unsigned processorsInAffinity() {
  DWORD_PTR process_mask = 0;
  DWORD_PTR system_mask = 0;
  if (!GetProcessAffinityMask(GetCurrentProcess(), &process_mask, &system_mask)) return processorsOfTheMachine();
  // The masks cover one group of at most 64 processors. A process whose threads run in
  // several groups gets zeros; one left to run anywhere gets its full group, while Windows 11
  // spreads its threads over every group: both then have all the machine's processors.
  if (process_mask == 0 || process_mask == system_mask) {
    return std::max(processorsOfTheMachine(), static_cast<unsigned>(std::popcount(std::uint64_t{process_mask})));
  }
  return static_cast<unsigned>(std::popcount(std::uint64_t{process_mask}));
}

// The processor time the job the process runs in may use (a container started with --cpus,
// say), in whole processors rounded up; 0 without such a cap. The rate is a share of the whole
// machine, counted in hundredths of a percent.
unsigned jobProcessorQuota() {
  JOBOBJECT_CPU_RATE_CONTROL_INFORMATION rate{};
  if (!QueryInformationJobObject(nullptr, JobObjectCpuRateControlInformation, &rate, sizeof rate, nullptr)) {
    return 0;  // not in a job, or a system too old to cap a job's processor time
  }
  if ((rate.ControlFlags & JOB_OBJECT_CPU_RATE_CONTROL_ENABLE) == 0) return 0;
  std::uint64_t cap = 0;
  if ((rate.ControlFlags & JOB_OBJECT_CPU_RATE_CONTROL_HARD_CAP) != 0) {
    cap = rate.CpuRate;
  } else if ((rate.ControlFlags & kCpuRateMinMax) != 0) {
    cap = rate.CpuRate >> 16;
  } else {
    return 0;  // a weight only shares the processors out among jobs, it caps nothing
  }
  if (cap == 0 || cap >= 10000) return 0;
  const std::uint64_t processors = (cap * processorsOfTheMachine() + 9999) / 10000;
  return static_cast<unsigned>(std::max<std::uint64_t>(processors, 1));
}

}  // namespace

unsigned countUsableProcessors() {
  // A container capped at two processors' time on a large host still sees every processor:
  // a conversion for each would only take turns, each holding its memory meanwhile.
  const unsigned quota = jobProcessorQuota();
  const unsigned affinity = processorsInAffinity();
  return quota != 0 ? std::min(affinity, quota) : affinity;
}

}  // namespace qm
