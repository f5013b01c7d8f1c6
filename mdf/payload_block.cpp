#include "mdf/payload_block.h"

#include <algorithm>

#include "mdf/save_context.h"
#include "stream/overlapped_copy.h"

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

BlockRef PayloadBlock::makeFromStream(BlockType type, std::unique_ptr<Stream> data) {
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

// Sorted payloads held in memory are written in one piece, others (gathered from the input)
// through large buffers that are filled while the previous one is written: the bytes are the
// same as a copy in small pieces would give, with far fewer calls. A short read or write (a
// full disk) fails the save, so no truncated file passes for a converted one.
bool PayloadBlock::writeOwnedData(Stream* output) {
  std::int64_t measured = streamSize(owned_data_.get());
  if (measured < 0 || !setPosition(owned_data_.get(), 0)) return false;
  auto size = static_cast<std::uint64_t>(measured);
  if (ByteView bytes = owned_data_->contents(); bytes.inMemory() && bytes.size == size) {
    return size == 0 || streamWrite(output, bytes.data, static_cast<std::size_t>(size)) == measured;
  }
  return copyOverlapped(owned_data_.get(), output, size);
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
