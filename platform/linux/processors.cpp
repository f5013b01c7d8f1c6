#include "platform/processors.h"

#include <sched.h>

#include <algorithm>
#include <thread>

#include "platform/linux/control_group.h"

namespace qm {
namespace {

unsigned processorsInAffinity() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) == 0 && CPU_COUNT(&allowed) > 0) {
    return static_cast<unsigned>(CPU_COUNT(&allowed));
  }
  unsigned online = std::thread::hardware_concurrency();
  return online == 0 ? 1 : online;
}

}  // namespace

unsigned countUsableProcessors() {
  // A container limited to two processors' time on a large host still sees every processor:
  // a conversion for each would only take turns, each holding its memory meanwhile.
  const unsigned quota = controlGroupProcessorQuota();
  const unsigned affinity = processorsInAffinity();
  return quota != 0 ? std::min(affinity, quota) : affinity;
}

}  // namespace qm
