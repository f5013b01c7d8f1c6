#include "mdf/payload_block.h"

#include <algorithm>

#include "mdf/save_context.h"

namespace qm {

std::int64_t PayloadView::read(void* buffer, std::size_t count) {
  std::uint64_t size = block_->dataSectionSize();
  std::uint64_t n = position_ < size ? std::min<std::uint64_t>(count, size - position_) : 0;
  if (n == 0) return 0;
  if (!setPosition(block_->source(), static_cast<std::int64_t>(block_->payloadStart() + position_))) return -1;
  std::int64_t result = streamRead(block_->source(), buffer, static_cast<std::size_t>(n));
  if (block_->type() == BlockType::kDT) {
    position_ += n;
  } else if (result > 0) {
    position_ += static_cast<std::uint64_t>(result);
  }
  return result;
}

std::int64_t PayloadView::seek(std::int64_t offset, int origin) {
  std::uint64_t size = block_->dataSectionSize();
  switch (origin) {
    case kSeekSet:
    case kSeekCur:
      position_ = std::min(static_cast<std::uint64_t>(offset), size);
      break;
    case kSeekEnd:
      position_ = size;
      break;
    default:
      position_ = 0;
      break;
  }
  if (!setPosition(block_->source(), static_cast<std::int64_t>(block_->payloadStart() + position_))) return -1;
  return static_cast<std::int64_t>(position_);
}

BlockRef PayloadBlock::makeFromMemory(BlockType type, std::unique_ptr<MemoryStream> data) {
  if ((type != kType && type != kSecondType) || !data) return nullptr;
  auto block = std::make_shared<PayloadBlock>(type);
  std::int64_t size = streamSize(data.get());
  block->header.length = kBlockHeaderSize + static_cast<std::uint64_t>(std::max<std::int64_t>(size, 0));
  data->seek(0, kSeekSet);
  block->owned_data_ = std::move(data);
  return block;
}

bool PayloadBlock::load(LoadContext&, Stream* stream, const BlockHeader&, BlockList*) {
  input_ = stream;
  std::int64_t start = streamTell(stream);
  payload_start_ = start > 0 ? static_cast<std::uint64_t>(start) : 0;
  return true;
}

// Sorted payloads are written straight from memory in one piece: the bytes are the same as a
// piecewise copy would give, without passing each piece through the output's buffer. A short
// write (a full disk) fails the save, so no truncated file passes for a converted one.
bool PayloadBlock::writeOwnedData(Stream* output) {
  std::uint64_t size = owned_data_->size();
  return size == 0 || streamWrite(output, owned_data_->data(), static_cast<std::size_t>(size)) ==
                          static_cast<std::int64_t>(size);
}

std::uint8_t PayloadBlock::save(SaveContext& ctx, Block*) {
  if (owned_data_) {
    std::int64_t size = streamSize(owned_data_.get());
    header.length = kBlockHeaderSize + static_cast<std::uint64_t>(std::max<std::int64_t>(size, 0));
  }
  // A length the logger never filled in still leaves room for the header that is written.
  header.length = std::max(header.length, kBlockHeaderSize);
  placeBlock(*this, ctx, true);
  if (!setPosition(ctx.stream, static_cast<std::int64_t>(file_position)) || !writeBlockHeader(this, ctx.stream)) {
    return 0;
  }
  if (owned_data_) return writeOwnedData(ctx.stream) ? 1 : 0;
  // The record reader may have moved the view; the copy always starts at the first payload byte.
  view_.seek(0, kSeekSet);
  copyAll(&view_, ctx.stream);
  return 1;
}

}  // namespace qm
