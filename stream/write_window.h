#pragma once
// Gathers the small positioned writes of an output file in memory and hands them to the system
// in few calls. A finalized file is saved block by block with a seek before nearly every block,
// and through the runtime library's buffer each seek costs a flush and a system call of its own:
// over 200 calls for a 40 KB file.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "platform/file.h"

namespace qm {

class WriteWindow {
 public:
  // `file`: one that starts empty and is written only through this window, which borrows it.
  explicit WriteWindow(File& file) : file_(file) {}
  WriteWindow(const WriteWindow&) = delete;
  WriteWindow& operator=(const WriteWindow&) = delete;

  // Writes `count` bytes at `offset`: into memory when they fit the window, large ones directly.
  // False when the system refused bytes (the reason in lastSystemError()); what the window held
  // is dropped.
  bool write(std::uint64_t offset, const void* bytes, std::size_t count);
  // Hands everything held to the system, in file order. False on failure (the reason in
  // lastSystemError()).
  bool flush();
  // Forgets everything held, for a file about to be removed.
  void discard() { held_.clear(); }

 private:
  // Offsets the window covers: a whole small file, or the blocks around one place of a large one.
  static constexpr std::uint64_t kSize = std::uint64_t{256} << 10;
  // Writes at least this large gain nothing from gathering and go straight to the file.
  static constexpr std::size_t kDirect = kSize / 2;
  // Scattered writes are handed over before they need more calls than this to write out.
  static constexpr std::size_t kMostRanges = 64;
  // Blocks start on 8-byte boundaries and the padding between them is never written. A gap up to
  // this long beyond all the file holds yet goes out as zeros, which is what the file would read
  // there anyway, so that the blocks around it take one call.
  static constexpr std::uint64_t kLongestGapFilled = 4096;

  bool fits(std::uint64_t offset, std::size_t count) const;
  void moveTo(std::uint64_t offset, std::size_t count);
  void hold(std::uint64_t begin, std::uint64_t end);
  bool writeThrough(std::uint64_t offset, const std::uint8_t* bytes, std::size_t count);

  File& file_;
  std::unique_ptr<std::uint8_t[]> bytes_;  // taken on first use
  std::uint64_t base_ = 0;                 // file offset of bytes_[0]
  // Held byte ranges as file offsets [begin, end): sorted, apart from each other.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> held_;
  std::uint64_t file_end_ = 0;  // the end of what the file holds: nothing was written beyond it
};

}  // namespace qm
