#include "base/spare_processors.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "base/control_group.h"

namespace qm {
namespace {

std::atomic<unsigned> running_conversions{0};

unsigned processorsInAffinity() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) == 0 && CPU_COUNT(&allowed) > 0) {
    return static_cast<unsigned>(CPU_COUNT(&allowed));
  }
  unsigned online = std::thread::hardware_concurrency();
  return online == 0 ? 1 : online;
}

unsigned countUsableProcessors() {
  // A container limited to two processors' time on a large host still sees every processor:
  // a conversion for each would only take turns, each holding its memory meanwhile.
  const unsigned quota = controlGroupProcessorQuota();
  const unsigned affinity = processorsInAffinity();
  return quota != 0 ? std::min(affinity, quota) : affinity;
}

}  // namespace

unsigned usableProcessors() {
  // Counted once: the files behind the count are not read again for every large data group.
  static const unsigned processors = countUsableProcessors();
  return processors;
}

RunningConversion::RunningConversion() { running_conversions.fetch_add(1, std::memory_order_relaxed); }

RunningConversion::~RunningConversion() { running_conversions.fetch_sub(1, std::memory_order_relaxed); }

bool processorToSpare() { return running_conversions.load(std::memory_order_relaxed) < usableProcessors(); }

}  // namespace qm
