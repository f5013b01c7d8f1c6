#include "base/spare_processors.h"

#include <atomic>

#include "platform/processors.h"

namespace qm {
namespace {

std::atomic<unsigned> running_conversions{0};

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
