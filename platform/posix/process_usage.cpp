#include "platform/process_usage.h"

#include <sys/resource.h>

namespace qm {
namespace {

double seconds(const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; }

}  // namespace

ProcessorTime processorTimeSoFar() {
  rusage usage{};
  if (getrusage(RUSAGE_SELF, &usage) != 0) return {};
  return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
}

std::uint64_t peakResidentBytes() {
  rusage usage{};
  if (getrusage(RUSAGE_SELF, &usage) != 0 || usage.ru_maxrss < 0) return 0;
  // Counted in kibibytes.
  return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

}  // namespace qm
