#include "tools/mdfgen/mdf_tree.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <initializer_list>
#include <optional>
#include <string_view>

#include "base/hash_map.h"
#include "tools/mdfgen/little_endian.h"

namespace qm {

void ProblemList::add(const char* format, ...) {
  if (items_.size() >= kLimit) {
    ++dropped_;
    return;
  }
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  items_.emplace_back(text);
}

namespace {

using ull = unsigned long long;

// Block kinds with their fixed link counts and smallest lengths.
struct BlockKind {
  std::string_view id;
  std::uint64_t links;
  std::uint64_t min_length;
};
constexpr BlockKind kKinds[] = {
    {"##HD", 6, 104}, {"##DG", 4, 64}, {"##CG", 6, 104}, {"##CN", 8, 160}, {"##CC", 4, 80}, {"##SI", 3, 56},
    {"##FH", 2, 56},  {"##TX", 0, 24}, {"##MD", 0, 24},  {"##DT", 0, 24},  {"##SD", 0, 24},
};
// Larger metadata blocks than this are taken as damage rather than read.
constexpr std::uint64_t kMetadataLimit = 16 << 20;
constexpr int kCompositionDepthLimit = 16;

struct RawBlock {
  std::uint64_t offset = 0;
  std::string id;
  std::uint64_t length = 0;
  std::vector<std::uint64_t> links;
  std::string bytes;  // the whole block, except for payload blocks

  std::uint64_t field(std::uint32_t at, int size) const {
    if (at + static_cast<std::size_t>(size) > bytes.size()) return 0;
    return getLe(reinterpret_cast<const unsigned char*>(bytes.data()) + at, size);
  }
};

class TreeReader {
 public:
  TreeReader(const ByteSource& source, MdfTree& tree, ProblemList& problems)
      : source_(source), tree_(tree), problems_(problems) {}

  void run() {
    tree_.file_size = source_.size();
    if (!readIdentification()) return;
    std::optional<RawBlock> header = read(64, {"##HD"}, "header");
    if (!header) return;
    for (int slot = 2; slot <= 4; ++slot) {
      if (header->links[static_cast<std::size_t>(slot)] != 0) {
        problems_.add("header links to a channel hierarchy, attachment or event (link %d)", slot);
      }
    }
    readText(header->links[5], "header comment");
    walkChain(header->links[1], "##FH", "file history", [&](const RawBlock& history) {
      readText(history.links[1], "file history comment");
    });
    walkChain(header->links[0], "##DG", "data group", [&](const RawBlock& group) { readDataGroup(group); });
    settleDataLengths();
    checkExtents();
  }

 private:
  bool readIdentification() {
    unsigned char id[64];
    if (!source_.readAt(0, id, sizeof id)) {
      problems_.add("file of %llu bytes is too short for an identification block", static_cast<ull>(tree_.file_size));
      return false;
    }
    tree_.file_id.assign(reinterpret_cast<const char*>(id), 8);
    if (tree_.file_id != "MDF     " && tree_.file_id != "UnFinMF ") {
      problems_.add("not an MDF4 file: identification \"%.8s\"", tree_.file_id.c_str());
      return false;
    }
    tree_.version = static_cast<std::uint16_t>(getLe(id + 28, 2));
    tree_.standard_flags = static_cast<std::uint16_t>(getLe(id + 60, 2));
    tree_.custom_flags = static_cast<std::uint16_t>(getLe(id + 62, 2));
    if (tree_.file_id == "MDF     " && (tree_.standard_flags != 0 || tree_.custom_flags != 0)) {
      problems_.add("finalized identification with unfinalized flags 0x%04X/0x%04X", tree_.standard_flags,
                    tree_.custom_flags);
    }
    tree_.extents.push_back({0, 64});
    return true;
  }

  // Reads the block at `offset`, which must be one of `ids`. Payload blocks are read without
  // their payload. Each block's extent is noted once, however often it is linked.
  std::optional<RawBlock> read(std::uint64_t offset, std::initializer_list<std::string_view> ids, const char* what) {
    if (offset % 8 != 0) problems_.add("%s at %llu is not 8-byte aligned", what, static_cast<ull>(offset));
    unsigned char head[24];
    if (offset < 64 || !source_.readAt(offset, head, sizeof head)) {
      problems_.add("%s link %llu points outside the file", what, static_cast<ull>(offset));
      return std::nullopt;
    }
    RawBlock block;
    block.offset = offset;
    block.id.assign(reinterpret_cast<const char*>(head), 4);
    block.length = getLe(head + 8, 8);
    std::uint64_t link_count = getLe(head + 16, 8);
    if (std::find(ids.begin(), ids.end(), block.id) == ids.end()) {
      problems_.add("%s at %llu has id \"%.4s\"", what, static_cast<ull>(offset), block.id.c_str());
      return std::nullopt;
    }
    const BlockKind* kind = kindOf(block.id);
    if (link_count != kind->links || block.length < kind->min_length || block.length < 24 + 8 * link_count) {
      problems_.add("%s at %llu: %llu links and length %llu", what, static_cast<ull>(offset), static_cast<ull>(link_count),
                    static_cast<ull>(block.length));
      return std::nullopt;
    }
    bool payload = block.id == "##DT" || block.id == "##SD";
    std::uint64_t to_read = payload ? 24 : block.length;
    if (to_read > kMetadataLimit || offset + to_read > tree_.file_size) {
      problems_.add("%s at %llu: length %llu runs past the end of the file", what, static_cast<ull>(offset),
                    static_cast<ull>(block.length));
      return std::nullopt;
    }
    block.bytes.resize(to_read);
    if (!source_.readAt(offset, block.bytes.data(), to_read)) return std::nullopt;
    for (std::uint64_t i = 0; i < link_count; ++i) block.links.push_back(block.field(static_cast<std::uint32_t>(24 + 8 * i), 8));
    if (seen_.insert(offset, tree_.extents.size())) tree_.extents.push_back({offset, block.length});
    return block;
  }

  static const BlockKind* kindOf(std::string_view id) {
    for (const BlockKind& kind : kKinds) {
      if (kind.id == id) return &kind;
    }
    return nullptr;
  }

  // Follows a chain of "next" links (link 0), stopping at a loop.
  template <class Visit>
  void walkChain(std::uint64_t first, std::string_view id, const char* what, Visit visit) {
    HashSet<std::uint64_t> in_chain;
    for (std::uint64_t at = first; at != 0;) {
      if (!in_chain.insert(at)) {
        problems_.add("%s chain loops back to %llu", what, static_cast<ull>(at));
        return;
      }
      std::optional<RawBlock> block = read(at, {id}, what);
      if (!block) return;
      visit(*block);
      at = block->links[0];
    }
  }

  std::string readText(std::uint64_t offset, const char* what) {
    if (offset == 0) return {};
    std::optional<RawBlock> block = read(offset, {"##TX", "##MD"}, what);
    if (!block) return {};
    std::string text = block->bytes.substr(24);
    std::size_t end = text.find('\0');
    if (end == std::string::npos) {
      problems_.add("%s at %llu is not zero-terminated", what, static_cast<ull>(offset));
      return text;
    }
    return text.substr(0, end);
  }

  void readDataGroup(const RawBlock& block) {
    DataGroupInfo group;
    group.offset = block.offset;
    group.record_id_size = static_cast<std::uint8_t>(block.field(56, 1));
    if (group.record_id_size != 0 && group.record_id_size != 1 && group.record_id_size != 2 && group.record_id_size != 4 &&
        group.record_id_size != 8) {
      problems_.add("data group at %llu: record id size %u", static_cast<ull>(block.offset), group.record_id_size);
    }
    readText(block.links[3], "data group comment");
    walkChain(block.links[1], "##CG", "channel group", [&](const RawBlock& cg) { group.groups.push_back(readChannelGroup(cg)); });
    if (block.links[2] != 0) {
      std::optional<RawBlock> data = read(block.links[2], {"##DT"}, "data block");
      if (data) {
        group.data_offset = data->offset;
        group.data_length = data->length;
      }
    }
    tree_.data_groups.push_back(std::move(group));
  }

  ChannelGroupInfo readChannelGroup(const RawBlock& block) {
    ChannelGroupInfo group;
    group.offset = block.offset;
    group.record_id = block.field(72, 8);
    group.cycle_count = block.field(80, 8);
    group.flags = static_cast<std::uint16_t>(block.field(88, 2));
    group.data_bytes = static_cast<std::uint32_t>(block.field(96, 4));
    group.invalidation_bytes = static_cast<std::uint32_t>(block.field(100, 4));
    group.acquisition_name = readText(block.links[2], "acquisition name");
    if (block.links[3] != 0) readSource(block.links[3], &group);
    if (block.links[4] != 0) problems_.add("channel group at %llu has a sample reduction", static_cast<ull>(block.offset));
    readText(block.links[5], "channel group comment");
    readChannels(block.links[1], group, 0);
    if (group.variableLength() && !group.channels.empty()) {
      problems_.add("variable-length channel group at %llu has channels", static_cast<ull>(block.offset));
    }
    return group;
  }

  void readSource(std::uint64_t offset, ChannelGroupInfo* group = nullptr) {
    std::optional<RawBlock> source = read(offset, {"##SI"}, "source");
    if (!source) return;
    if (group != nullptr) {
      group->source_type = static_cast<std::uint8_t>(source->field(48, 1));
      group->bus_type = static_cast<std::uint8_t>(source->field(49, 1));
    }
    readText(source->links[0], "source name");
    readText(source->links[1], "source path");
    readText(source->links[2], "source comment");
  }

  void readChannels(std::uint64_t first, ChannelGroupInfo& group, int depth) {
    if (depth > kCompositionDepthLimit) {
      problems_.add("channel composition nested deeper than %d", kCompositionDepthLimit);
      return;
    }
    walkChain(first, "##CN", "channel", [&](const RawBlock& cn) {
      ChannelInfo channel;
      channel.name = readText(cn.links[2], "channel name");
      channel.channel_type = static_cast<std::uint8_t>(cn.field(88, 1));
      channel.data_type = static_cast<std::uint8_t>(cn.field(90, 1));
      channel.bit_position = static_cast<std::uint32_t>(cn.field(92, 4) * 8 + cn.field(91, 1));
      channel.bit_count = static_cast<std::uint32_t>(cn.field(96, 4));
      channel.data_link = cn.links[5];
      if (cn.links[2] == 0) problems_.add("channel at %llu has no name", static_cast<ull>(cn.offset));
      if (cn.links[3] != 0) readSource(cn.links[3]);
      if (cn.links[4] != 0) readConversion(cn.links[4], 0);
      readText(cn.links[6], "channel unit");
      readText(cn.links[7], "channel comment");
      checkChannel(cn.offset, channel, group);
      if (cn.links[1] != 0) readChannels(cn.links[1], group, depth + 1);
      group.channels.push_back(std::move(channel));
    });
  }

  void checkChannel(std::uint64_t offset, ChannelInfo& channel, const ChannelGroupInfo& group) {
    if (static_cast<std::uint64_t>(channel.bit_position) + channel.bit_count > 8ULL * group.data_bytes) {
      problems_.add("channel %s at %llu lies outside its %u-byte record", channel.name.c_str(), static_cast<ull>(offset),
                    group.data_bytes);
    }
    if (channel.channel_type != 1) return;
    if (channel.data_link == 0) {
      problems_.add("variable-length channel %s has no data link", channel.name.c_str());
      return;
    }
    std::optional<RawBlock> data = read(channel.data_link, {"##CG", "##SD"}, "variable-length data");
    if (data && data->id == "##SD") tree_.signal_data.push_back({data->offset, data->length});
  }

  void readConversion(std::uint64_t offset, int depth) {
    std::optional<RawBlock> conversion = read(offset, {"##CC"}, "conversion");
    if (!conversion) return;
    std::uint64_t values = conversion->field(62, 2);
    if (conversion->length != 80 + 8 * values) {
      problems_.add("conversion at %llu: %llu values in %llu bytes", static_cast<ull>(offset), static_cast<ull>(values),
                    static_cast<ull>(conversion->length));
    }
    readText(conversion->links[0], "conversion name");
    readText(conversion->links[1], "conversion unit");
    readText(conversion->links[2], "conversion comment");
    if (conversion->links[3] != 0 && depth < 1) readConversion(conversion->links[3], depth + 1);
  }

  // A logger that did not update the last DT length leaves it to run to the end of the file.
  void settleDataLengths() {
    DataGroupInfo* last = nullptr;
    for (DataGroupInfo& group : tree_.data_groups) {
      if (group.data_offset != 0 && (last == nullptr || group.data_offset > last->data_offset)) last = &group;
    }
    if ((tree_.standard_flags & 0x0004) == 0 || last == nullptr) return;
    last->data_length = tree_.file_size - last->data_offset;
    for (BlockExtent& extent : tree_.extents) {
      if (extent.offset == last->data_offset) extent.length = last->data_length;
    }
  }

  void checkExtents() {
    std::vector<BlockExtent> sorted = tree_.extents;
    std::sort(sorted.begin(), sorted.end(), [](const BlockExtent& a, const BlockExtent& b) { return a.offset < b.offset; });
    for (std::size_t i = 0; i < sorted.size(); ++i) {
      const BlockExtent& block = sorted[i];
      if (block.length > tree_.file_size || block.offset > tree_.file_size - block.length) {
        problems_.add("block at %llu with length %llu runs past the end of the file", static_cast<ull>(block.offset),
                      static_cast<ull>(block.length));
      }
      if (i + 1 < sorted.size() && block.offset + block.length > sorted[i + 1].offset) {
        problems_.add("blocks at %llu and %llu overlap", static_cast<ull>(block.offset), static_cast<ull>(sorted[i + 1].offset));
      }
    }
  }

  const ByteSource& source_;
  MdfTree& tree_;
  ProblemList& problems_;
  HashMap<std::uint64_t, std::size_t> seen_;
};

}  // namespace

void readMdfTree(const ByteSource& source, MdfTree& tree, ProblemList& problems) {
  TreeReader(source, tree, problems).run();
}

}  // namespace qm
