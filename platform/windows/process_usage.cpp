#include "platform/process_usage.h"

#include <windows.h>
// After windows.h, which it needs. The K32 form of the call is kernel32's own, so the program
// needs no psapi.dll.
#include <psapi.h>

namespace qm {
namespace {

// Counted in units of 100 nanoseconds.
double seconds(const FILETIME& t) {
  const ULONGLONG units = (static_cast<ULONGLONG>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
  return static_cast<double>(units) / 1e7;
}

}  // namespace

ProcessorTime processorTimeSoFar() {
  FILETIME created{}, exited{}, kernel{}, user{};
  if (!GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user)) return {};
  return {seconds(user), seconds(kernel)};
}

std::uint64_t peakResidentBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  if (!K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)) return 0;
  return counters.PeakWorkingSetSize;
}

}  // namespace qm
