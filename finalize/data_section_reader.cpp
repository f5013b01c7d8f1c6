#include "finalize/data_section_reader.h"

#include <algorithm>
#include <cstring>

namespace qm {

DataSectionReader::DataSectionReader(Stream* section, std::uint64_t size) : section_(section), size_(size) {}

DataSectionReader::DataSectionReader(const std::uint8_t* bytes, std::uint64_t size)
    : section_(nullptr), size_(bytes ? size : 0), fetched_(size_), base_(bytes), end_(size_) {}

const std::uint8_t* DataSectionReader::ensureSlow(std::uint64_t n) {
  if (n > remaining() || section_ == nullptr || !fill(n)) return nullptr;
  return base_ + begin_;
}

bool DataSectionReader::fill(std::uint64_t n) {
  std::size_t held = static_cast<std::size_t>(end_ - begin_);
  if (begin_ != 0) {
    std::memmove(window_.data(), window_.data() + begin_, held);
    begin_ = 0;
    end_ = held;
  }
  while (end_ < n) {
    // The window grows only as far as bytes really arrive, so a length that the block's header
    // or a record claims but the stream does not hold never allocates more than twice the data.
    if (end_ == window_.size()) {
      std::uint64_t grown = std::max<std::uint64_t>(kPieceSize, 2 * window_.size());
      window_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(grown, std::max<std::uint64_t>(n, kPieceSize))));
      base_ = window_.data();
    }
    std::uint64_t room = std::min<std::uint64_t>(window_.size() - end_, size_ - fetched_);
    // Seek before every read: others may move the block's view in between, and a data block's
    // view runs ahead of what a short read delivered.
    if (room == 0 || !setPosition(section_, static_cast<std::int64_t>(fetched_))) return false;
    std::int64_t got = section_->read(window_.data() + end_, static_cast<std::size_t>(room));
    if (got <= 0) return false;
    std::uint64_t delivered = std::min<std::uint64_t>(static_cast<std::uint64_t>(got), room);
    end_ += delivered;
    fetched_ += delivered;
  }
  return true;
}

}  // namespace qm
