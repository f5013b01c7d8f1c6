#include "tools/mdfgen/block_plan.h"

#include "tools/mdfgen/little_endian.h"

namespace qm {

int BlockPlan::add(std::string_view id, int link_count, std::uint32_t length) {
  Draft draft;
  draft.bytes.assign(length, '\0');
  draft.bytes.replace(0, 4, id.substr(0, 4));
  draft.links.assign(static_cast<std::size_t>(link_count), kNone);
  draft.length = length;
  draft.declared_length = length;
  blocks_.push_back(std::move(draft));
  int index = size() - 1;
  putU64(index, 16, static_cast<std::uint64_t>(link_count));
  return index;
}

int BlockPlan::addText(std::string_view id, std::string_view text) {
  std::uint32_t length = static_cast<std::uint32_t>((24 + text.size() + 1 + 7) / 8 * 8);
  int index = add(id, 0, length);
  blocks_[index].bytes.replace(24, text.size(), text);
  return index;
}

int BlockPlan::addPayload(std::string_view id, std::uint64_t payload_size) {
  int index = add(id, 0, 24);
  blocks_[index].length = 24 + payload_size;
  blocks_[index].declared_length = 24 + payload_size;
  blocks_[index].payload = true;
  return index;
}

void BlockPlan::link(int from, int slot, int to) { blocks_[from].links[static_cast<std::size_t>(slot)] = to; }

void BlockPlan::putF64(int block, std::uint32_t offset, double value) {
  qm::putF64(reinterpret_cast<unsigned char*>(blocks_[block].bytes.data()) + offset, value);
}

void BlockPlan::put(int block, std::uint32_t offset, std::uint64_t value, int bytes) {
  putLe(reinterpret_cast<unsigned char*>(blocks_[block].bytes.data()) + offset, value, bytes);
}

std::uint64_t BlockPlan::layout(std::uint64_t start) {
  std::uint64_t position = start;
  for (Draft& draft : blocks_) {
    position = (position + 7) / 8 * 8;
    draft.offset = position;
    position += draft.length;
  }
  return position;
}

bool BlockPlan::write(int block, ByteSink& sink) const {
  const Draft& draft = blocks_[block];
  if (sink.position() > draft.offset) return false;
  if (!sink.writeZeros(static_cast<std::size_t>(draft.offset - sink.position()))) return false;
  std::string bytes = draft.bytes;
  unsigned char* image = reinterpret_cast<unsigned char*>(bytes.data());
  putLe(image + 8, draft.declared_length, 8);
  for (std::size_t i = 0; i < draft.links.size(); ++i) {
    int target = draft.links[i];
    putLe(image + 24 + 8 * i, target == kNone ? 0 : blocks_[target].offset, 8);
  }
  return sink.write(bytes);
}

bool BlockPlan::writeUpToPayload(ByteSink& sink) const {
  for (int i = 0; i < size() && !blocks_[i].payload; ++i) {
    if (!write(i, sink)) return false;
  }
  return true;
}

}  // namespace qm
