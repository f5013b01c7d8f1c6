#pragma once
// Fills a large buffer piece by piece ahead of whoever works on it: a second thread copies the
// next pieces in (from a file, say) while the caller works on the ones already there, still in
// the cache (decrypting them in place, say). It keeps only a few pieces ahead, so that a piece
// is still cached when its turn comes. Without a thread (none could be started, or the buffer
// is a single piece), each piece is filled when it is asked for.
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace qm {

class PieceFiller {
 public:
  // fill(offset, count): puts the `count` bytes that belong at `offset` of the buffer in place;
  // false when they cannot be had. Called on the filling thread, in buffer order.
  using Fill = std::function<bool(std::uint64_t offset, std::size_t count)>;

  PieceFiller(std::uint64_t size, std::size_t piece, Fill fill);
  // Stops the filling (also when it is not done) and waits for the thread.
  ~PieceFiller();
  PieceFiller(const PieceFiller&) = delete;
  PieceFiller& operator=(const PieceFiller&) = delete;

  // Waits until the buffer is filled up to `end`; false when a fill failed before that. Tells
  // the filler that the caller is done with everything before the `end` it asked for last.
  bool waitUntil(std::uint64_t end);

 private:
  static constexpr unsigned kPiecesAhead = 4;

  void fillAll();
  bool fillInline(std::uint64_t end);

  const std::uint64_t size_;
  const std::size_t piece_;
  const Fill fill_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t filled_ = 0;  // bytes in place from the start
  std::uint64_t asked_ = 0;      // the end the caller last waited for
  std::uint64_t done_with_ = 0;  // bytes the caller has finished with
  bool failed_ = false;
  bool stopping_ = false;
  std::thread thread_;  // not started when the system refuses it
};

}  // namespace qm
