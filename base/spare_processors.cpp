#include "base/spare_processors.h"

#include <atomic>
#include <thread>

namespace qm {
namespace {

std::atomic<unsigned> running_conversions{0};

unsigned processors() {
  static const unsigned count = std::thread::hardware_concurrency();
  return count == 0 ? 1 : count;
}

}  // namespace

RunningConversion::RunningConversion() { running_conversions.fetch_add(1, std::memory_order_relaxed); }

RunningConversion::~RunningConversion() { running_conversions.fetch_sub(1, std::memory_order_relaxed); }

bool processorToSpare() { return running_conversions.load(std::memory_order_relaxed) < processors(); }

}  // namespace qm
