#include "finalize/record_reader.h"

#include <algorithm>
#include <iterator>

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

RecordIterator::RecordIterator(const DataGroupBlock& group)
    : group_(group), lookup_(group), reader_(openDataSection(group)) {}

}  // namespace qm
