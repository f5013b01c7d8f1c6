#include "app/conversion_pool.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <system_error>

#include "base/spare_processors.h"

namespace qm {

ConversionPool::ConversionPool(int workers, std::uint64_t memory_budget, MappedBlockCache& kept_blocks)
    : memory_budget_(memory_budget), kept_blocks_(kept_blocks) {
  if (workers < 1) workers = 1;
  workers_.reserve(static_cast<std::size_t>(workers));
  for (int i = 0; i < workers; ++i) {
    // Fewer workers than asked for (the system refused a thread) still convert everything;
    // with none at all, submit runs each task itself.
    try {
      workers_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
      break;
    }
  }
}

ConversionPool::~ConversionPool() {
  waitForAll();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (std::thread& worker : workers_) worker.join();
}

bool ConversionPool::fits(std::uint64_t memory) const {
  // One file more than there are workers: it waits ready, so a worker that finishes starts it at
  // once instead of waiting for the walk to wake up and hand over the next.
  if (admitted_ >= static_cast<int>(workers_.size()) + kWaitingAhead) return false;
  // Alone, a file always runs, however large.
  if (admitted_ == 0) return true;
  return memory_in_use_ <= memory_budget_ && memory <= memory_budget_ - memory_in_use_;
}

void ConversionPool::submit(std::uint64_t memory_estimate, std::function<void()> task) {
  if (workers_.empty()) {
    task();
    return;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [&] { return fits(memory_estimate); });
  ++admitted_;
  memory_in_use_ += memory_estimate;
  const std::uint64_t memory_in_use = memory_in_use_;
  ready_.push_back(Task{memory_estimate, std::move(task)});
  lock.unlock();
  changed_.notify_all();
  keepWithinBudget(kept_blocks_, memory_in_use, memory_budget_);
}

void ConversionPool::waitForAll() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [&] { return admitted_ == 0; });
}

void ConversionPool::work() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return stopping_ || !ready_.empty(); });
    if (ready_.empty()) return;
    Task task = std::move(ready_.front());
    ready_.pop_front();
    lock.unlock();
    task.run();
    lock.lock();
    --admitted_;
    memory_in_use_ -= task.memory;
    changed_.notify_all();
  }
}

void keepWithinBudget(MappedBlockCache& kept_blocks, std::uint64_t memory_in_use, std::uint64_t memory_budget) {
  const std::uint64_t room = memory_in_use < memory_budget ? memory_budget - memory_in_use : 0;
  const std::uint64_t kept = kept_blocks.keptBytes();
  kept_blocks.trimTo(static_cast<std::size_t>(std::min<std::uint64_t>(room, SIZE_MAX)));
  // The heap keeps freed buffers too (the program asks it to); when they may not fit beside
  // the rest, their pages go back to the system. Rare: only a tight budget gets here.
  const std::uint64_t heap_free = mallinfo2().fordblks;
  if (kept > room || heap_free > room - kept) malloc_trim(0);
}

int workersForJobs(int jobs) { return jobs > 0 ? jobs : static_cast<int>(usableProcessors()); }

namespace {

// A limit as the control group file states it; none when the file is missing or says "max".
std::uint64_t limitInFile(const char* path) {
  std::FILE* file = std::fopen(path, "r");
  if (!file) return UINT64_MAX;
  unsigned long long limit = 0;
  bool numeric = std::fscanf(file, "%llu", &limit) == 1;
  std::fclose(file);
  return numeric && limit > 0 ? limit : UINT64_MAX;
}

// The memory limit of the control group the process runs in (a container's), if one is set:
// where control groups are of the current kind, or of the older kind many hosts still run (its
// "no limit" is a number near the top of the range, above any physical memory).
std::uint64_t controlGroupLimit() {
  return std::min(limitInFile("/sys/fs/cgroup/memory.max"),
                  limitInFile("/sys/fs/cgroup/memory/memory.limit_in_bytes"));
}

}  // namespace

std::uint64_t defaultMemoryBudget() {
  long pages = sysconf(_SC_PHYS_PAGES);
  long page_size = sysconf(_SC_PAGESIZE);
  std::uint64_t physical = pages > 0 && page_size > 0
                               ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(page_size)
                               : std::uint64_t{2} << 30;
  return std::min(physical, controlGroupLimit()) / 2;
}

}  // namespace qm
