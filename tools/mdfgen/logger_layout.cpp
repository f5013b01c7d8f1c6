#include "tools/mdfgen/logger_layout.h"

#include <cstdio>

#include "tools/mdfgen/little_endian.h"

namespace qm {
namespace {

constexpr std::uint64_t kBaseStartTimeNs = 1710144000ULL * 1000000000ULL;  // 2024-03-11 08:00 UTC
constexpr std::uint16_t kBusEventFlags = 0x0006;                          // bus event, plain bus event
constexpr std::uint16_t kVariableLengthFlag = 0x0001;
constexpr double kTimestampResolution = 1e-6;  // raw timestamps count microseconds

class TreeBuilder {
 public:
  TreeBuilder(LoggerLayout& layout, bool sorted, std::uint64_t seed, const GroupTotals& totals)
      : layout_(layout), plan_(layout.plan), sorted_(sorted), seed_(seed), totals_(totals) {}

  void build() {
    int header = addHeader();
    const std::vector<GroupSpec>& groups = loggedGroups();
    int can_source = addSource("CAN", "CAN bus", 2);
    int lin_source = addSource("LIN", "LIN bus", 3);
    time_conversion_ = addTimeConversion();

    int previous_group = BlockPlan::kNone;
    int previous_data_group = BlockPlan::kNone;
    for (int g = 0; g < kLoggedGroupCount; ++g) {
      const GroupSpec& fields = groups[static_cast<std::size_t>(g)];
      // Unsorted: one data group for everything. Sorted: one per fixed-length group, while the
      // variable-length group becomes a signal data block of the group before it.
      bool new_data_group = sorted_ ? !fields.variable_length : previous_data_group == BlockPlan::kNone;
      if (new_data_group) {
        int data_group = plan_.add("##DG", 4, 64);
        plan_.putU8(data_group, 56, sorted_ ? 0 : 1);
        linkNext(header, 0, previous_data_group, data_group);
        previous_data_group = data_group;
        previous_group = BlockPlan::kNone;
      }
      data_group_of_[static_cast<std::size_t>(g)] = previous_data_group;
      if (sorted_ && fields.variable_length) continue;
      int group = addChannelGroup(fields, g, fields.bus_type == 3 ? lin_source : can_source);
      linkNext(previous_data_group, 1, previous_group, group);
      previous_group = group;
      if (fields.variable_length) plan_.link(variable_channel_, 5, group);
    }
    addPayloadBlocks();
  }

 private:
  // Links `block` as the first child of `parent` (through `slot`) or behind its previous sibling.
  void linkNext(int parent, int slot, int previous, int block) {
    if (previous == BlockPlan::kNone) {
      plan_.link(parent, slot, block);
    } else {
      plan_.link(previous, 0, block);
    }
  }

  int addHeader() {
    int header = plan_.add("##HD", 6, 104);
    std::uint64_t start = kBaseStartTimeNs + (seed_ % 5000) * 3600ULL * 1000000000ULL;
    plan_.putU64(header, 72, start);
    plan_.putI16(header, 80, 60);  // logger clock in central European time
    plan_.putI16(header, 82, 0);
    plan_.putU8(header, 84, 2);  // offsets valid
    char comment[512];
    std::snprintf(comment, sizeof comment,
                  "<HDcomment><TX>CAN/LIN bus log</TX><common_properties>"
                  "<e name=\"device serial\">%08llX</e><e name=\"firmware\">01.04.02</e>"
                  "<e name=\"session\">%llu</e><e name=\"split\">1</e></common_properties></HDcomment>",
                  static_cast<unsigned long long>(0x10000000 + seed_ % 0x0FFFFFFF), static_cast<unsigned long long>(seed_ % 1000));
    plan_.link(header, 5, plan_.addText("##MD", comment));

    int history = plan_.add("##FH", 2, 56);
    plan_.putU64(history, 40, start);
    plan_.putI16(history, 48, 60);
    plan_.putU8(history, 52, 2);
    plan_.link(history, 1,
               plan_.addText("##MD",
                             "<FHcomment><TX>created</TX><tool_id>mdfgen</tool_id>"
                             "<tool_vendor>quillmend</tool_vendor><tool_version>1.0</tool_version></FHcomment>"));
    plan_.link(header, 1, history);
    return header;
  }

  int addSource(std::string_view name, std::string_view path, std::uint8_t bus_type) {
    int source = plan_.add("##SI", 3, 56);
    plan_.putU8(source, 48, 2);  // source type: bus
    plan_.putU8(source, 49, bus_type);
    plan_.link(source, 0, plan_.addText("##TX", name));
    plan_.link(source, 1, plan_.addText("##TX", path));
    return source;
  }

  int addTimeConversion() {
    int conversion = plan_.add("##CC", 4, 96);
    plan_.putU8(conversion, 56, 1);  // linear
    plan_.putU16(conversion, 62, 2);
    plan_.putF64(conversion, 80, 0.0);
    plan_.putF64(conversion, 88, kTimestampResolution);
    return conversion;
  }

  int addChannelGroup(const GroupSpec& fields, int index, int source) {
    int group = plan_.add("##CG", 6, 104);
    plan_.putU64(group, 72, fields.record_id);
    plan_.putU16(group, 88, fields.variable_length ? kVariableLengthFlag : kBusEventFlags);
    plan_.putU16(group, 90, '.');
    plan_.putU32(group, 96, fields.data_bytes);
    if (sorted_) plan_.putU64(group, 80, totals_.records[static_cast<std::size_t>(index)]);
    plan_.link(group, 2, plan_.addText("##TX", fields.acquisition_name));
    plan_.link(group, 3, source);
    int previous = BlockPlan::kNone;
    for (const ChannelSpec& channel : fields.channels) {
      int block = addChannel(channel);
      plan_.link(previous == BlockPlan::kNone ? group : previous, previous == BlockPlan::kNone ? 1 : 0, block);
      previous = block;
      if (channel.channel_type == 1) variable_channel_ = block;
    }
    return group;
  }

  int addChannel(const ChannelSpec& fields) {
    int channel = plan_.add("##CN", 8, 160);
    plan_.putU8(channel, 88, fields.channel_type);
    plan_.putU8(channel, 89, fields.channel_type == 2 ? 1 : 0);  // master synchronises on time
    plan_.putU8(channel, 90, fields.data_type);
    plan_.putU8(channel, 91, fields.bit_offset);
    plan_.putU32(channel, 92, fields.byte_offset);
    plan_.putU32(channel, 96, fields.bit_count);
    plan_.link(channel, 2, plan_.addText("##TX", fields.name));
    if (fields.field == FrameField::kTimestamp) {
      plan_.link(channel, 4, time_conversion_);
      plan_.link(channel, 6, plan_.addText("##TX", "s"));
    }
    return channel;
  }

  // Payload blocks come last: the logger appends records behind everything else, and a sorted
  // file keeps the same order so it can be written in one pass.
  void addPayloadBlocks() {
    const std::vector<GroupSpec>& groups = loggedGroups();
    if (!sorted_) {
      int data = plan_.addPayload("##DT", 0);
      plan_.link(data_group_of_[0], 2, data);
      layout_.payload_block.fill(data);
      return;
    }
    for (int g = 0; g < kLoggedGroupCount; ++g) {
      const GroupSpec& fields = groups[static_cast<std::size_t>(g)];
      std::uint64_t bytes = totals_.payload_bytes[static_cast<std::size_t>(g)];
      int payload = plan_.addPayload(fields.variable_length ? "##SD" : "##DT", bytes);
      if (fields.variable_length) {
        plan_.link(variable_channel_, 5, payload);
      } else {
        plan_.link(data_group_of_[static_cast<std::size_t>(g)], 2, payload);
      }
      layout_.payload_block[static_cast<std::size_t>(g)] = payload;
    }
  }

  LoggerLayout& layout_;
  BlockPlan& plan_;
  bool sorted_;
  std::uint64_t seed_;
  const GroupTotals& totals_;
  int time_conversion_ = BlockPlan::kNone;
  int variable_channel_ = BlockPlan::kNone;
  std::array<int, kLoggedGroupCount> data_group_of_{};
};

}  // namespace

LoggerLayout planLoggerFile(bool sorted, std::uint64_t seed, const GroupTotals& totals) {
  LoggerLayout layout;
  TreeBuilder(layout, sorted, seed, totals).build();
  layout.plan.layout(64);
  return layout;
}

std::string identificationBlock(bool finalized, bool damaged) {
  std::string block(64, '\0');
  block.replace(0, 24, finalized ? "MDF     4.11    mdfgen  " : "UnFinMF 4.11    mdfgen  ");
  if (damaged) block.replace(0, 8, "Damaged ");
  unsigned char* bytes = reinterpret_cast<unsigned char*>(block.data());
  putLe(bytes + 28, 411, 2);
  putLe(bytes + 60, finalized ? 0 : kLoggerUnfinalizedFlags, 2);
  return block;
}

}  // namespace qm
