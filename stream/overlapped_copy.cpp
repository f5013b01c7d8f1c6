#include "stream/overlapped_copy.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "base/spare_processors.h"
#include "memory/mapped_blocks.h"

namespace qm {
namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 20;
// Below this a thread costs more than it saves.
constexpr std::uint64_t kOverlapThreshold = std::uint64_t{8} << 20;

// A copy buffer in a mapping of its own. It lives as long as its thread; in the heap it would
// sit between the large blocks that later conversions allocate there and push them onto fresh
// pages. The mapping is one huge page where the kernel has them: one fault instead of 256.
// Empty (size 0, and every copy through it fails) when no memory is left.
class CopyBuffer {
 public:
  CopyBuffer() : block_(mapFreshBlock(kHugePage)) {}
  ~CopyBuffer() { unmapBlock(block_); }
  CopyBuffer(const CopyBuffer&) = delete;
  CopyBuffer& operator=(const CopyBuffer&) = delete;

  std::uint8_t* data() const { return static_cast<std::uint8_t*>(block_.data); }
  std::size_t size() const { return block_.data ? kBufferSize : 0; }

 private:
  static_assert(kBufferSize <= kHugePage);
  MappedBlock block_;
};

// The copy buffers of the calling thread, kept from one copy to the next: fresh pages cost a
// fault each, and a file is saved block by block, many of them large.
CopyBuffer& spareBuffer(unsigned which) {
  thread_local CopyBuffer spare[2];
  return spare[which];
}

bool copyInline(Stream* source, Stream* target, std::uint64_t size) {
  CopyBuffer& buffer = spareBuffer(0);
  for (std::uint64_t copied = 0; copied < size;) {
    std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), size - copied));
    std::int64_t got = streamRead(source, buffer.data(), want);
    if (got <= 0 || streamWrite(target, buffer.data(), static_cast<std::size_t>(got)) != got) return false;
    copied += static_cast<std::uint64_t>(got);
  }
  return true;
}

// Two buffers handed back and forth: the reading side fills them in turn, the writing side
// empties them in the same turn.
class Handoff {
 public:
  explicit Handoff(Stream* target) : target_(target), slots_{Slot{spareBuffer(0)}, Slot{spareBuffer(1)}} {}

  // Reading side: the next free buffer, or null once writing failed.
  CopyBuffer* acquireForFilling() {
    std::unique_lock<std::mutex> lock(mutex_);
    Slot& slot = slots_[fill_turn_];
    changed_.wait(lock, [&] { return !slot.full || failed_; });
    return failed_ ? nullptr : &slot.bytes;
  }
  void submit(std::size_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    Slot& slot = slots_[fill_turn_];
    slot.count = count;
    slot.full = true;
    fill_turn_ ^= 1;
    changed_.notify_all();
  }
  // Reading side, at the end: lets the writer drain what is left and stop.
  void finish() {
    std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
    changed_.notify_all();
  }
  bool failed() {
    std::lock_guard<std::mutex> lock(mutex_);
    return failed_;
  }

  // Writing side: runs until the reading side finished and every full buffer was written.
  void writeAll() {
    for (;;) {
      std::unique_lock<std::mutex> lock(mutex_);
      Slot& slot = slots_[write_turn_];
      changed_.wait(lock, [&] { return slot.full || finished_; });
      if (!slot.full) return;
      lock.unlock();
      bool written = streamWrite(target_, slot.bytes.data(), slot.count) == static_cast<std::int64_t>(slot.count);
      lock.lock();
      slot.full = false;
      if (!written) failed_ = true;
      write_turn_ ^= 1;
      changed_.notify_all();
      if (failed_) return;
    }
  }

 private:
  struct Slot {
    CopyBuffer& bytes;
    std::size_t count = 0;
    bool full = false;
  };

  Stream* target_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Slot slots_[2];
  unsigned fill_turn_ = 0;
  unsigned write_turn_ = 0;
  bool finished_ = false;
  bool failed_ = false;
};

}  // namespace

bool copyOverlapped(Stream* source, Stream* target, std::uint64_t size) {
  if (size < kOverlapThreshold || !processorToSpare()) return copyInline(source, target, size);
  Handoff handoff(target);
  std::thread writer;
  try {
    writer = std::thread([&handoff] { handoff.writeAll(); });
  } catch (const std::system_error&) {
    return copyInline(source, target, size);
  }
  bool complete = true;
  for (std::uint64_t copied = 0; copied < size;) {
    CopyBuffer* buffer = handoff.acquireForFilling();
    std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(kBufferSize, size - copied));
    std::int64_t got = buffer && buffer->data() ? streamRead(source, buffer->data(), want) : -1;
    if (got <= 0) {
      complete = false;
      break;
    }
    handoff.submit(static_cast<std::size_t>(got));
    copied += static_cast<std::uint64_t>(got);
  }
  handoff.finish();
  writer.join();
  return complete && !handoff.failed();
}

}  // namespace qm
