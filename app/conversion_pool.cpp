#include "app/conversion_pool.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <system_error>

#include "base/spare_processors.h"
#include "platform/allocator.h"
#include "platform/resource_limits.h"

namespace qm {

ConversionPool::ConversionPool(int max_workers, std::uint64_t memory_budget, MappedBlockCache& kept_blocks)
    : max_workers_(std::max(max_workers, 1)), memory_budget_(memory_budget), kept_blocks_(kept_blocks) {}

ConversionPool::~ConversionPool() {
  waitForAll();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  task_ready_.notify_all();
  for (std::thread& worker : workers_) worker.join();
}

int ConversionPool::workerCount() {
  std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int>(workers_.size());
}

bool ConversionPool::fits(std::uint64_t memory) const {
  // One file more than there are workers: it waits ready, so a worker that finishes starts it at
  // once instead of waiting for the walk to wake up and hand over the next.
  if (admitted_ >= max_workers_ + kWaitingAhead) return false;
  // Alone, a file always runs, however large.
  if (admitted_ == 0) return true;
  return memory_in_use_ <= memory_budget_ && memory <= memory_budget_ - memory_in_use_;
}

void ConversionPool::startWorkerIfNoneIsIdle() {
  // Every idle worker already has a ready file to take.
  if (idle_ > static_cast<int>(ready_.size()) || static_cast<int>(workers_.size()) >= max_workers_) return;
  try {
    workers_.emplace_back([this] { work(); });
    ++idle_;  // from its start, so the next file does not start another one for nothing
  } catch (const std::system_error&) {
    // Fewer workers than asked for (the system refused a thread) still convert everything.
    max_workers_ = std::max(static_cast<int>(workers_.size()), 1);
  }
}

void ConversionPool::submit(std::uint64_t memory_estimate, std::function<void()> task) {
  std::unique_lock<std::mutex> lock(mutex_);
  task_finished_.wait(lock, [&] { return fits(memory_estimate); });
  startWorkerIfNoneIsIdle();
  if (workers_.empty()) {
    // Not a single thread could be started: the walk's own thread converts.
    lock.unlock();
    task();
    return;
  }
  ++admitted_;
  memory_in_use_ += memory_estimate;
  const std::uint64_t memory_in_use = memory_in_use_;
  ready_.push_back(Task{memory_estimate, std::move(task)});
  lock.unlock();
  task_ready_.notify_one();
  keepWithinBudget(kept_blocks_, memory_in_use, memory_budget_);
}

void ConversionPool::waitForAll() {
  std::unique_lock<std::mutex> lock(mutex_);
  task_finished_.wait(lock, [&] { return admitted_ == 0; });
}

void ConversionPool::work() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    task_ready_.wait(lock, [&] { return stopping_ || !ready_.empty(); });
    if (ready_.empty()) return;
    Task task = std::move(ready_.front());
    ready_.pop_front();
    --idle_;
    lock.unlock();
    task.run();
    lock.lock();
    ++idle_;
    --admitted_;
    memory_in_use_ -= task.memory;
    task_finished_.notify_all();
  }
}

void keepWithinBudget(MappedBlockCache& kept_blocks, std::uint64_t memory_in_use, std::uint64_t memory_budget) {
  const std::uint64_t room = memory_in_use < memory_budget ? memory_budget - memory_in_use : 0;
  const std::uint64_t kept = kept_blocks.keptBytes();
  kept_blocks.trimTo(static_cast<std::size_t>(std::min<std::uint64_t>(room, SIZE_MAX)));
  // The heap keeps freed buffers too (the program asks it to); when they may not fit beside
  // the rest, their pages go back to the system. Rare: only a tight budget gets here.
  const std::uint64_t heap_free = freeHeapBytes();
  if (kept > room || heap_free > room - kept) returnFreeHeapMemory();
}

namespace {

// A conversion holds one open file at a time (its input, then its output, then the output's
// folder); two per worker leave room to spare. The run itself holds a few more (standard
// streams, folders being listed, the crypto library while it loads).
constexpr std::uint64_t kFilesPerWorker = 2;
constexpr std::uint64_t kFilesOfTheRun = 64;

// More workers than the open-file limit leaves room for would make conversions fail to open
// their files instead of waiting their turn.
int workersTheOpenFileLimitAllows() {
  const std::uint64_t limit = openFileLimit();
  if (limit == UINT64_MAX) return INT_MAX;
  const std::uint64_t room = limit > kFilesOfTheRun ? limit - kFilesOfTheRun : 0;
  return static_cast<int>(std::clamp<std::uint64_t>(room / kFilesPerWorker, 1, INT_MAX));
}

}  // namespace

int workersForJobs(int jobs) {
  const int wanted = jobs > 0 ? jobs : static_cast<int>(usableProcessors());
  return std::min(wanted, workersTheOpenFileLimitAllows());
}

std::uint64_t defaultMemoryBudget() {
  std::uint64_t physical = physicalMemory();
  if (physical == 0) physical = std::uint64_t{2} << 30;
  return std::min(physical, memoryLimit()) / 2;
}

}  // namespace qm
