#include "platform/process_info.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <ctime>

namespace qm {

LocalTime localTimeNow() {
  timeval now{};
  gettimeofday(&now, nullptr);
  std::tm local{};
  time_t seconds = now.tv_sec;
  localtime_r(&seconds, &local);
  return LocalTime{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                   local.tm_min,         local.tm_sec,     static_cast<int>(now.tv_usec / 1000)};
}

long long processId() { return getpid(); }

// The kernel's id of the thread, which ps and top show, rather than the library's handle.
long long threadId() { return static_cast<long long>(syscall(SYS_gettid)); }

}  // namespace qm
