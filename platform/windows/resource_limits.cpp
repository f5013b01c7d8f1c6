#include "platform/resource_limits.h"

#include <windows.h>

#include <algorithm>

namespace qm {

std::uint64_t physicalMemory() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  if (!GlobalMemoryStatusEx(&status)) return 0;
  return status.ullTotalPhys;
}

// The job the process runs in (a container, a service, a build system) may limit the memory
// of each of its processes, or of all of them together.
std::uint64_t memoryLimit() {
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION job{};
  if (!QueryInformationJobObject(nullptr, JobObjectExtendedLimitInformation, &job, sizeof job, nullptr)) {
    return UINT64_MAX;  // not in a job
  }
  std::uint64_t limit = UINT64_MAX;
  const DWORD flags = job.BasicLimitInformation.LimitFlags;
  if ((flags & JOB_OBJECT_LIMIT_PROCESS_MEMORY) != 0 && job.ProcessMemoryLimit != 0) {
    limit = std::min<std::uint64_t>(limit, job.ProcessMemoryLimit);
  }
  if ((flags & JOB_OBJECT_LIMIT_JOB_MEMORY) != 0 && job.JobMemoryLimit != 0) {
    limit = std::min<std::uint64_t>(limit, job.JobMemoryLimit);
  }
  return limit;
}

// Files are opened as the system's handles, of which a process may hold millions: nothing
// like the descriptor limit of POSIX systems applies.
std::uint64_t openFileLimit() { return UINT64_MAX; }

}  // namespace qm
