#pragma once
// The payloads of one channel group, collected in record order while a data group is sorted.
// When the records are read in place from memory (the whole input is mapped or decoded), only
// their places are noted, and the bytes are gathered from the input as the file is written:
// a large file is never copied a second time. Otherwise the payloads are copied into memory.
#include <cstdint>
#include <memory>

#include "stream/memory_stream.h"
#include "finalize/piece_list.h"
#include "stream/stream.h"

namespace qm {

// Cache-line aligned: the threads that scan one group note into different objects, which must
// not share a line.
class alignas(64) SortedPayloads {
 public:
  // `memory`: where the payloads of the records to come lie, or none when they are copies
  // that vanish with the next record.
  explicit SortedPayloads(ByteView memory)
      : memory_(memory), copies_(memory.inMemory() ? nullptr : std::make_unique<MemoryStream>()) {}

  // A payload that vanishes with the next record: copied (when there is no memory).
  void copy(const std::uint8_t* payload, std::size_t size) {
    if (copies_) copies_->write(payload, size);
  }
  // A payload that stays in the memory: its place is noted.
  void note(std::uint64_t offset, std::uint64_t size) { pieces_.add(offset, size); }

  // Payloads collected elsewhere, handed out as they are by release().
  static std::unique_ptr<SortedPayloads> holding(std::unique_ptr<Stream> stream) {
    auto payloads = std::make_unique<SortedPayloads>(ByteView{});
    payloads->ready_ = std::move(stream);
    return payloads;
  }

  // Payload bytes collected so far.
  std::uint64_t size() const { return copies_ ? copies_->size() : pieces_.totalLength(); }

  // The payloads as the stream of a data or signal data block. Noted places borrow the input's
  // memory: the input must stay open until the block is written.
  std::unique_ptr<Stream> release();

 private:
  ByteView memory_;
  std::unique_ptr<MemoryStream> copies_;
  std::unique_ptr<Stream> ready_;
  PieceList pieces_;
};

}  // namespace qm
