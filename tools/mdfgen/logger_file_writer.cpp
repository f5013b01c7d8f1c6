#include "tools/mdfgen/logger_file_writer.h"

#include <cstring>
#include <vector>

#include "tools/mdfgen/bus_traffic.h"
#include "tools/mdfgen/frame_records.h"
#include "tools/mdfgen/little_endian.h"
#include "tools/mdfgen/logger_layout.h"

namespace qm {
namespace {

// A logger rewrites the data block's length field only every so often; what it leaves in the
// header of the last block is the length at its last update.
constexpr std::uint64_t kLengthUpdateInterval = 64 * 1024;

// Collects records and hands them to the sink in large pieces.
class RecordBuffer {
 public:
  explicit RecordBuffer(ByteSink& sink) : sink_(sink) { bytes_.reserve(kCapacity); }

  unsigned char* append(std::size_t size) {
    if (bytes_.size() + size > kCapacity) flush();
    std::size_t at = bytes_.size();
    bytes_.resize(at + size);
    return bytes_.data() + at;
  }
  bool flush() {
    if (!bytes_.empty() && !sink_.write(bytes_.data(), bytes_.size())) ok_ = false;
    bytes_.clear();
    return ok_;
  }
  std::uint64_t position() const { return sink_.position() + bytes_.size(); }

 private:
  static constexpr std::size_t kCapacity = 256 * 1024;
  ByteSink& sink_;
  std::vector<unsigned char> bytes_;
  bool ok_ = true;
};

unsigned char* appendRecord(RecordBuffer& buffer, std::uint64_t record_id, int id_bytes, std::size_t payload) {
  unsigned char* at = buffer.append(static_cast<std::size_t>(id_bytes) + payload);
  putLe(at, record_id, id_bytes);
  std::memset(at + id_bytes, 0, payload);
  return at + id_bytes;
}

void appendVariableValue(unsigned char* at, const BusEvent& frame) {
  putLe(at, frame.data_length, 4);
  std::memcpy(at + 4, frame.data, frame.data_length);
}

// Size of one frame's records in a data block with record ids of `id_bytes` bytes.
std::uint64_t frameBytes(const BusEvent& frame, int id_bytes) {
  const GroupSpec& group = loggedGroups()[static_cast<std::size_t>(groupOfFrame(frame.kind))];
  std::uint64_t bytes = static_cast<std::uint64_t>(id_bytes) + group.data_bytes;
  if (frame.kind == FrameKind::kCanData) bytes += static_cast<std::uint64_t>(id_bytes) + variableValueSize(frame);
  return bytes;
}

// Frames keep coming until the file is big enough and every kind of frame was seen once.
class StopRule {
 public:
  explicit StopRule(std::uint64_t size) : size_(size) {}
  bool done(std::uint64_t position) const { return position >= size_ && seen_ == 7; }
  void saw(const BusEvent& frame) { seen_ |= 1u << static_cast<unsigned>(frame.kind); }

 private:
  std::uint64_t size_;
  unsigned seen_ = 0;
};

bool writeUnsorted(const LoggerFileSettings& settings, ByteSink& sink) {
  GroupTotals no_totals;
  LoggerLayout layout = planLoggerFile(false, settings.seed, no_totals);
  int data_block = layout.payload_block[0];
  if (!sink.write(identificationBlock(false, settings.damaged_id)) || !layout.plan.writeUpToPayload(sink) ||
      !layout.plan.write(data_block, sink)) {
    return false;
  }
  const std::vector<GroupSpec>& groups = loggedGroups();
  std::uint64_t data_start = sink.position();
  BusTraffic traffic(settings.seed);
  RecordBuffer buffer(sink);
  StopRule stop(settings.size);
  std::uint64_t variable_position = 0;
  while (!stop.done(buffer.position())) {
    const BusEvent& frame = traffic.next();
    stop.saw(frame);
    const GroupSpec& group = groups[static_cast<std::size_t>(groupOfFrame(frame.kind))];
    if (frame.kind == FrameKind::kCanData) {
      // The payload goes out first, so the frame record can point at it.
      const GroupSpec& bytes_group = groups[kCanDataBytesGroup];
      appendVariableValue(appendRecord(buffer, bytes_group.record_id, 1, variableValueSize(frame)), frame);
      encodeRecord(group, frame, variable_position, appendRecord(buffer, group.record_id, 1, group.data_bytes));
      variable_position += variableValueSize(frame);
    } else {
      encodeRecord(group, frame, 0, appendRecord(buffer, group.record_id, 1, group.data_bytes));
    }
  }
  if (!buffer.flush()) return false;
  std::uint64_t payload = sink.position() - data_start;
  unsigned char stale_length[8];
  putLe(stale_length, 24 + payload / kLengthUpdateInterval * kLengthUpdateInterval, 8);
  return sink.patch(layout.plan.offsetOf(data_block) + 8, stale_length, 8);
}

// Runs the traffic once to learn which frames the unsorted file of these settings holds, and
// so how big each sorted block gets: both forms carry the same frames.
std::uint64_t countFrames(const LoggerFileSettings& settings, GroupTotals& totals) {
  GroupTotals no_totals;
  LoggerLayout unsorted = planLoggerFile(false, settings.seed, no_totals);
  std::uint64_t position = unsorted.plan.offsetOf(unsorted.payload_block[0]) + 24;
  BusTraffic traffic(settings.seed);
  StopRule stop(settings.size);
  std::uint64_t frames = 0;
  while (!stop.done(position)) {
    const BusEvent& frame = traffic.next();
    stop.saw(frame);
    LoggedGroup group = groupOfFrame(frame.kind);
    totals.records[group] += 1;
    totals.payload_bytes[group] += loggedGroups()[group].data_bytes;
    if (frame.kind == FrameKind::kCanData) {
      totals.records[kCanDataBytesGroup] += 1;
      totals.payload_bytes[kCanDataBytesGroup] += variableValueSize(frame);
    }
    position += frameBytes(frame, 1);
    ++frames;
  }
  return frames;
}

// Writes one sorted payload block by replaying the traffic and keeping one group's frames.
bool writeSortedPayload(const LoggerFileSettings& settings, std::uint64_t frames, int group_index, ByteSink& sink) {
  const GroupSpec& group = loggedGroups()[static_cast<std::size_t>(group_index)];
  BusTraffic traffic(settings.seed);
  RecordBuffer buffer(sink);
  std::uint64_t variable_position = 0;
  for (std::uint64_t i = 0; i < frames; ++i) {
    const BusEvent& frame = traffic.next();
    if (group.kind != frame.kind) continue;
    if (group.variable_length) {
      appendVariableValue(buffer.append(variableValueSize(frame)), frame);
    } else {
      encodeRecord(group, frame, variable_position, appendRecord(buffer, 0, 0, group.data_bytes));
    }
    if (frame.kind == FrameKind::kCanData) variable_position += variableValueSize(frame);
  }
  return buffer.flush();
}

bool writeSorted(const LoggerFileSettings& settings, ByteSink& sink) {
  GroupTotals totals;
  std::uint64_t frames = countFrames(settings, totals);
  LoggerLayout layout = planLoggerFile(true, settings.seed, totals);
  if (!sink.write(identificationBlock(true, settings.damaged_id)) || !layout.plan.writeUpToPayload(sink)) return false;
  for (int g = 0; g < kLoggedGroupCount; ++g) {
    int block = layout.payload_block[static_cast<std::size_t>(g)];
    if (!layout.plan.write(block, sink) || !writeSortedPayload(settings, frames, g, sink)) return false;
  }
  return true;
}

}  // namespace

bool writeLoggerFile(const LoggerFileSettings& settings, ByteSink& sink) {
  return settings.sorted ? writeSorted(settings, sink) : writeUnsorted(settings, sink);
}

}  // namespace qm
