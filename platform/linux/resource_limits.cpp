#include "platform/resource_limits.h"

#include <sys/resource.h>
#include <unistd.h>

#include "platform/linux/control_group.h"

namespace qm {

std::uint64_t physicalMemory() {
  long pages = sysconf(_SC_PHYS_PAGES);
  long page_size = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || page_size <= 0) return 0;
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(page_size);
}

std::uint64_t memoryLimit() { return controlGroupMemoryLimit(); }

std::uint64_t openFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return UINT64_MAX;
  return limit.rlim_cur;
}

}  // namespace qm
