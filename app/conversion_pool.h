#pragma once
// Runs conversions on several worker threads. Files start in the order they are handed in,
// each as soon as a worker is free and the memory that the admitted conversions (running, or
// the one waiting ready for a worker) are expected to hold stays within a budget; a file whose
// estimate alone exceeds the budget runs when nothing else does, and nothing starts beside it.
// Workers start only when a file finds none idle, so a large worker count costs nothing beyond
// what the files handed in need.
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "memory/mapped_blocks.h"

namespace qm {

class ConversionPool {
 public:
  // `kept_blocks`: the freed buffers the process keeps, which count against the budget too.
  ConversionPool(int max_workers, std::uint64_t memory_budget, MappedBlockCache& kept_blocks = sharedBlockCache());
  ConversionPool(const ConversionPool&) = delete;
  ConversionPool& operator=(const ConversionPool&) = delete;
  // Waits for everything handed in.
  ~ConversionPool();

  // Blocks until the task may start, then hands it to a worker.
  void submit(std::uint64_t memory_estimate, std::function<void()> task);
  // Returns once every task handed in has finished.
  void waitForAll();

  // Workers started so far.
  int workerCount();

 private:
  struct Task {
    std::uint64_t memory;
    std::function<void()> run;
  };

  static constexpr int kWaitingAhead = 1;

  void work();
  bool fits(std::uint64_t memory) const;
  void startWorkerIfNoneIsIdle();

  int max_workers_;              // as asked, lowered when the system refuses a thread
  const std::uint64_t memory_budget_;
  MappedBlockCache& kept_blocks_;
  std::mutex mutex_;
  std::condition_variable task_ready_;     // workers wait for a task
  std::condition_variable task_finished_;  // the walk waits for room
  std::deque<Task> ready_;       // admitted, waiting for a worker to pick them up
  int admitted_ = 0;             // ready or running
  int idle_ = 0;                 // workers not running a task
  std::uint64_t memory_in_use_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

// Unmaps kept freed buffers beyond what the budget leaves beside the memory that running
// conversions may hold, so that kept and used memory stay within it together.
void keepWithinBudget(MappedBlockCache& kept_blocks, std::uint64_t memory_in_use, std::uint64_t memory_budget);

// Worker count for the jobs option: 0 means one per processor this process may run on.
int workersForJobs(int jobs);
// Half the physical memory: what conversions running together may hold.
std::uint64_t defaultMemoryBudget();

}  // namespace qm
