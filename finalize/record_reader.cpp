#include "finalize/record_reader.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "finalize/record_salvage.h"
#include "mdf/data_group_block.h"
#include "mdf/payload_block.h"

namespace qm {

RecordLayoutLookup::RecordLayoutLookup(const DataGroupBlock& group) : group_(group) {
  std::fill(std::begin(direct_), std::end(direct_), kNotLooked);
}

std::int64_t RecordLayoutLookup::payloadLengthSlow(std::uint64_t record_id) {
  const RecordLayout* layout = group_.record_layouts.find(record_id);
  std::int64_t length = kNoLayout;
  if (layout != nullptr) {
    // -1 marks a VLSD channel group; any other stored length is taken as unsigned 32-bit.
    length = layout->payload_length == -1 ? kVariable : static_cast<std::uint32_t>(layout->payload_length);
  }
  if (record_id < kDirect) direct_[record_id] = length;
  return length;
}

bool startsBlock(const std::uint8_t* bytes, std::uint64_t left) {
  if (left < kBytesToTellABlock) return false;
  auto upper = [](std::uint8_t c) { return c >= 'A' && c <= 'Z'; };
  std::uint64_t length = littleEndianValue(bytes + 8, 8);
  return bytes[0] == '#' && bytes[1] == '#' && upper(bytes[2]) && upper(bytes[3]) && bytes[4] == 0 && bytes[5] == 0 &&
         bytes[6] == 0 && bytes[7] == 0 && length >= kBytesToTellABlock && length <= left;
}

std::optional<std::uint64_t> findBlockStart(const std::uint8_t* bytes, std::uint64_t window, std::uint64_t left) {
  for (std::uint64_t at = 0; at + kBytesToTellABlock <= window; ++at) {
    const void* mark = std::memchr(bytes + at, '#', static_cast<std::size_t>(window - kBytesToTellABlock + 1 - at));
    if (mark == nullptr) break;
    at = static_cast<std::uint64_t>(static_cast<const std::uint8_t*>(mark) - bytes);
    if (startsBlock(bytes + at, left - at)) return at;
  }
  return std::nullopt;
}

void endDropAtBlock(ScanEnd& end, const std::uint8_t* bytes, std::uint64_t block_offset) {
  // Blocks start on 8-byte boundaries; the zeros before one are padding, not records.
  constexpr std::uint64_t kBlockAlignment = 8;
  bool padding = block_offset < kBlockAlignment;
  for (std::uint64_t i = 0; padding && i < block_offset; ++i) padding = bytes[i] == 0;
  end.left = block_offset;
  if (padding) {
    end.kind = ScanEnd::kEndOfData;
  } else if (end.kind == ScanEnd::kPastEnd && block_offset <= kLargestTornRecord) {
    end.kind = ScanEnd::kTornRecord;
  }
}

ScanEnd scanEndAt(std::size_t id_size, RecordLayoutLookup& lookup, const std::uint8_t* bytes, std::uint64_t left,
                  std::uint64_t offset) {
  constexpr std::uint64_t kVlsdLengthPrefix = 4;
  ScanEnd end;
  end.offset = offset;
  end.left = left;
  if (left == 0) return end;
  end.kind = ScanEnd::kTornRecord;
  if (left < id_size) return end;
  end.record_id = id_size > 0 ? littleEndianValue(bytes, id_size) : 0;
  std::int64_t length = lookup.payloadLength(end.record_id);
  if (length == RecordLayoutLookup::kNoLayout) {
    // A last data block stretched to the end of the file also covers the blocks written after
    // it: the records end where they begin.
    end.kind = startsBlock(bytes, left) ? ScanEnd::kEndOfData : ScanEnd::kUnknownId;
    return end;
  }
  std::uint64_t payload_size = static_cast<std::uint64_t>(length);
  if (length == RecordLayoutLookup::kVariable) {
    if (left - id_size < kVlsdLengthPrefix) return end;
    payload_size = kVlsdLengthPrefix + littleEndianValue(bytes + id_size, kVlsdLengthPrefix);
  }
  std::uint64_t total = id_size + payload_size;
  if (total == 0) {
    end.kind = ScanEnd::kEmptyRecord;
  } else if (total > left && length == RecordLayoutLookup::kVariable && left > kLargestTornRecord) {
    end.kind = ScanEnd::kPastEnd;
    end.length = total;
  } else if (total <= left) {
    end.kind = ScanEnd::kEndOfData;  // the record is whole: the caller stopped for its own reason
  }
  return end;
}

void claimTooLongIsDamage(ScanEnd& end, std::size_t id_size, RecordLayoutLookup& lookup, const std::uint8_t* bytes) {
  constexpr std::uint64_t kVlsdLengthPrefix = 4;
  if (end.kind != ScanEnd::kTornRecord || end.left < id_size + kVlsdLengthPrefix) return;
  const std::uint64_t record_id = id_size > 0 ? littleEndianValue(bytes, id_size) : 0;
  if (lookup.payloadLength(record_id) != RecordLayoutLookup::kVariable) return;
  const std::uint64_t total = id_size + kVlsdLengthPrefix + littleEndianValue(bytes + id_size, kVlsdLengthPrefix);
  if (total <= kLargestTornRecord) return;
  end.kind = ScanEnd::kPastEnd;
  end.record_id = record_id;
  end.length = total;
}

std::int64_t readRecord(const DataGroupBlock& group, DataSectionReader& reader, Record& record) {
  RecordLayoutLookup lookup(group);
  return readRecord(group, lookup, reader, record);
}

std::optional<SectionInMemory> dataSectionInMemory(const DataGroupBlock& group) {
  PayloadBlock* block = group.dataBlock();
  ByteView contents = block && block->source() ? block->source()->contents() : ByteView{};
  if (!contents.inMemory() || block->payloadStart() > contents.size) return std::nullopt;
  return SectionInMemory{contents, block->payloadStart(),
                         std::min(block->dataSectionSize(), contents.size - block->payloadStart())};
}

namespace {

// Reads the group's data section in place when its stream holds it in memory, else through
// the data block's view.
DataSectionReader openDataSection(const DataGroupBlock& group) {
  if (std::optional<SectionInMemory> section = dataSectionInMemory(group)) {
    return DataSectionReader(section->memory.data + section->start, section->size);
  }
  PayloadBlock* block = group.dataBlock();
  if (block == nullptr) return DataSectionReader(static_cast<const std::uint8_t*>(nullptr), 0);
  return DataSectionReader(block->payloadStream(), block->dataSectionSize());
}

}  // namespace

RecordIterator::RecordIterator(const DataGroupBlock& group, bool salvaging)
    : group_(group), lookup_(group), reader_(openDataSection(group)), salvaging_(salvaging) {}

void RecordIterator::noteEnd() {
  constexpr std::uint64_t kMaxRecordIdSize = 8;
  constexpr std::uint64_t kVlsdLengthPrefix = 4;
  const std::uint64_t left = reader_.remaining();
  const std::size_t id_size = group_.record_id_size;
  if (id_size > kMaxRecordIdSize || group_.record_layouts.empty()) {
    end_ = ScanEnd{ScanEnd::kUnknownId, reader_.position(), left, 0, 0};
    return;
  }
  const std::uint8_t* bytes =
      reader_.ensure(std::min<std::uint64_t>(left, std::max<std::uint64_t>(id_size + kVlsdLengthPrefix, kBytesToTellABlock)));
  // A section the stream could not deliver ends where its bytes ended.
  if (bytes == nullptr) {
    end_ = ScanEnd{ScanEnd::kTornRecord, reader_.position(), left, 0, 0};
    return;
  }
  end_ = scanEndAt(id_size, lookup_, bytes, left, reader_.position());
  if (salvaging_) claimTooLongIsDamage(end_, id_size, lookup_, bytes);
  if (end_.dropsData() && !salvaging_) findRecordsEnd();
}

bool RecordIterator::resumeAfterDamage(SalvageSearch& search) {
  constexpr std::uint64_t kPaddingView = kBytesToTellABlock + 8;
  if (!over_ || !end_.dropsData() || end_.left == 0) return false;
  const std::uint8_t* bytes = reader_.ensure(std::min(end_.left, kPaddingView));
  if (bytes == nullptr) return false;
  if (std::optional<std::uint64_t> block = findBlockStart(bytes, std::min(end_.left, kPaddingView), end_.left)) {
    ScanEnd probe = end_;
    endDropAtBlock(probe, bytes, *block);
    if (!probe.dropsData()) {
      end_ = probe;
      return false;
    }
  }
  reader_.consume(1);  // the record that stopped the scan is none
  // The places are tried in what the reader holds already; the view grows only for a run that
  // needs more, so a short stretch costs no more than its own bytes and its run.
  constexpr std::uint64_t kFirstView = 4096;
  for (;;) {
    const std::uint64_t left = reader_.remaining();
    std::uint64_t view = std::min(left, std::max(reader_.buffered(), kFirstView));
    bytes = reader_.ensure(view);
    if (bytes == nullptr) return false;
    std::uint64_t at = 0;
    // The end of the data is a place too, and always taken.
    for (; at < view || (view == left && at <= left); ++at) {
      SalvageSearch::Verdict verdict = search.judgeRun(bytes + at, left - at, view - at);
      if (verdict == SalvageSearch::kNeedMore) {
        view = std::min(left, at + kSalvageWindow);
        bytes = reader_.ensure(view);
        if (bytes == nullptr) return false;
        verdict = search.judgeRun(bytes + at, left - at, view - at);
      }
      if (verdict == SalvageSearch::kAccepted) {
        reader_.consume(static_cast<std::size_t>(at));
        over_ = false;
        end_ = ScanEnd{};
        return true;
      }
    }
    reader_.consume(static_cast<std::size_t>(at));
  }
}

void RecordIterator::findRecordsEnd() {
  // Piece by piece, each overlapping the next by a block header less one byte, so that no
  // header is missed at a seam.
  constexpr std::uint64_t kSearchPiece = DataSectionReader::kPieceSize;
  const std::uint64_t left = end_.left;
  for (std::uint64_t searched = 0; left - searched >= kBytesToTellABlock;) {
    const std::uint64_t window = std::min(left - searched, kSearchPiece);
    const std::uint8_t* bytes = reader_.ensure(window);
    if (bytes == nullptr) return;
    if (std::optional<std::uint64_t> block = findBlockStart(bytes, window, left - searched)) {
      // Padding is short enough to lie in the first piece.
      endDropAtBlock(end_, bytes - searched, searched + *block);
      return;
    }
    const std::uint64_t step = window - (kBytesToTellABlock - 1);
    reader_.consume(static_cast<std::size_t>(step));
    searched += step;
  }
}

}  // namespace qm
