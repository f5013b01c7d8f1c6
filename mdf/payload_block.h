#pragma once
// Data (DT) and signal data (SD) blocks. Their payload is never read into memory on load: the
// block is a window on the input stream, read through payloadStream(). Blocks the finalization
// builds own the stream of their sorted bytes instead (in memory, or gathered from the input
// when it is written). Saving copies the payload from the view.
#include <cstdint>
#include <memory>

#include "mdf/block.h"
#include "stream/stream.h"

namespace qm {

class PayloadBlock;

// Read-only stream over a payload block's data section.
class PayloadView : public Stream {
 public:
  explicit PayloadView(PayloadBlock* block) : block_(block) {}
  // Reads at most up to the end of the data section. A data block advances its position by the
  // (clamped) count asked for, a signal data block by the count actually read: after a short
  // read a data block's position runs ahead of what was delivered.
  std::int64_t read(void* buffer, std::size_t count) override;
  std::int64_t tell() override { return static_cast<std::int64_t>(position_); }
  // Origins 0 and 1 both take the offset from the start of the payload (clamped to the data
  // section); origin 2 goes to its end; other origins go to 0. -1 if the source missed.
  std::int64_t seek(std::int64_t offset, int origin) override;

 private:
  PayloadBlock* block_;  // the block that embeds this view
  std::uint64_t position_ = 0;
};

class PayloadBlock : public Block {
 public:
  static constexpr BlockType kType = BlockType::kDT;
  static constexpr BlockType kSecondType = BlockType::kSD;

  // `type` is kDT or kSD.
  explicit PayloadBlock(BlockType type) : Block(type), view_(this) {}

  // A block whose payload is `data` (owned, closed with the block); its length is 24 plus the
  // data's size, and the save copies it from position 0.
  static BlockRef makeFromStream(BlockType type, std::unique_ptr<Stream> data);

  // Records where the payload starts in the stream; reads nothing.
  bool load(LoadContext& ctx, Stream* stream, const BlockHeader& header, BlockList* list) override;
  std::uint8_t save(SaveContext& ctx, Block* next) override;

  // The view used to read records.
  Stream* payloadStream() { return &view_; }
  std::uint64_t dataSectionSize() const { return qm::dataSectionSize(header); }
  // The stream the payload comes from (the input, or the owned memory) and where it starts.
  Stream* source() const { return owned_data_ ? owned_data_.get() : input_; }
  std::uint64_t payloadStart() const { return owned_data_ ? 0 : payload_start_; }
  bool ownsData() const { return owned_data_ != nullptr; }

 private:
  bool writeOwnedData(Stream* output);

  PayloadView view_;
  Stream* input_ = nullptr;  // borrowed: the stream the block was loaded from
  std::uint64_t payload_start_ = 0;
  std::unique_ptr<Stream> owned_data_;
};

}  // namespace qm
