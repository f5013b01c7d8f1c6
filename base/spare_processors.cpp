#include "base/spare_processors.h"

#include <sched.h>

#include <atomic>
#include <thread>

namespace qm {
namespace {

std::atomic<unsigned> running_conversions{0};

}  // namespace

unsigned usableProcessors() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) == 0 && CPU_COUNT(&allowed) > 0) {
    return static_cast<unsigned>(CPU_COUNT(&allowed));
  }
  unsigned online = std::thread::hardware_concurrency();
  return online == 0 ? 1 : online;
}

RunningConversion::RunningConversion() { running_conversions.fetch_add(1, std::memory_order_relaxed); }

RunningConversion::~RunningConversion() { running_conversions.fetch_sub(1, std::memory_order_relaxed); }

bool processorToSpare() {
  static const unsigned processors = usableProcessors();
  return running_conversions.load(std::memory_order_relaxed) < processors;
}

}  // namespace qm
