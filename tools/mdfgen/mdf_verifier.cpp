#include "tools/mdfgen/mdf_verifier.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "tools/mdfgen/little_endian.h"
#include "tools/mdfgen/mdf_tree.h"

namespace qm {
namespace {

using ull = unsigned long long;

class Digest {
 public:
  void add(const unsigned char* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) value_ = (value_ ^ bytes[i]) * 0x100000001B3ULL;
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325ULL;
};

// Where each value of a variable-length sequence (a VLSD channel group or an SD block) starts.
struct ValueIndex {
  std::vector<std::uint64_t> starts;
  std::vector<std::uint32_t> lengths;
  std::uint64_t bytes = 0;
  Digest digest;
  std::string owner;  // the channel whose values these are

  void add(const unsigned char* length_and_value, std::uint32_t length) {
    starts.push_back(bytes);
    lengths.push_back(length);
    digest.add(length_and_value, 4 + static_cast<std::size_t>(length));
    bytes += 4 + static_cast<std::uint64_t>(length);
  }
  // The length of the value starting at `offset`, or nothing when no value starts there.
  const std::uint32_t* lengthAt(std::uint64_t offset) const {
    auto it = std::lower_bound(starts.begin(), starts.end(), offset);
    if (it == starts.end() || *it != offset) return nullptr;
    return &lengths[static_cast<std::size_t>(it - starts.begin())];
  }
};

// Per channel group while its records are walked.
struct GroupWalk {
  const ChannelGroupInfo* info = nullptr;
  std::uint64_t records = 0;
  Digest digest;
  ValueIndex values;  // for a variable-length group
  const ChannelInfo* master = nullptr;
  const ChannelInfo* reference = nullptr;    // a variable-length channel
  const ChannelInfo* data_length = nullptr;  // "...DataLength" beside it
  const ValueIndex* referenced = nullptr;    // filled in once the target is known
  std::uint64_t last_time = 0;
  bool time_reported = false;
  bool reference_reported = false;
};

bool endsWith(const std::string& text, std::string_view tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

class Verifier {
 public:
  Verifier(const ByteSource& source, VerifyReport& report) : source_(source), report_(report) {}

  void run() {
    readMdfTree(source_, tree_, problems_);
    if (!tree_.file_id.empty() && problems_.empty()) {
      indexSignalData();
      for (const DataGroupInfo& group : tree_.data_groups) walkDataGroup(group);
    }
    std::size_t channel_groups = 0;
    for (const DataGroupInfo& group : tree_.data_groups) channel_groups += group.groups.size();
    char line[256];
    std::snprintf(line, sizeof line, "file: \"%.8s\" version %u, unfinalized flags 0x%04X/0x%04X, %zu data groups, %zu channel groups",
                  tree_.file_id.c_str(), tree_.version, tree_.standard_flags, tree_.custom_flags, tree_.data_groups.size(),
                  channel_groups);
    report_.file_line = line;
    std::sort(report_.content_lines.begin(), report_.content_lines.end());
    report_.problems = problems_.items();
    if (problems_.dropped() > 0) report_.problems.push_back("and " + std::to_string(problems_.dropped()) + " more problems");
  }

 private:
  void indexSignalData() {
    for (const BlockExtent& block : tree_.signal_data) {
      if (signal_data_.count(block.offset) != 0) continue;
      ValueIndex& index = signal_data_[block.offset];
      RangeReader reader(source_, block.offset + 24, block.offset + block.length);
      unsigned char value[4 + 0xFFFF];
      while (reader.remaining() > 0) {
        if (!reader.read(value, 4)) break;
        std::uint32_t length = static_cast<std::uint32_t>(getLe(value, 4));
        if (length > 0xFFFF || !reader.read(value + 4, length)) {
          problems_.add("signal data at %llu: value at %llu does not fit", static_cast<ull>(block.offset),
                        static_cast<ull>(index.bytes));
          break;
        }
        index.add(value, length);
      }
    }
    for (const DataGroupInfo& group : tree_.data_groups) {
      for (const ChannelGroupInfo& cg : group.groups) {
        for (const ChannelInfo& channel : cg.channels) {
          auto it = signal_data_.find(channel.data_link);
          if (channel.channel_type == 1 && it != signal_data_.end()) it->second.owner = channel.name;
        }
      }
    }
  }

  void walkDataGroup(const DataGroupInfo& group) {
    std::vector<GroupWalk> walks(group.groups.size());
    for (std::size_t i = 0; i < walks.size(); ++i) prepare(walks[i], group.groups[i], group, walks);
    if (group.data_offset != 0) walkRecords(group, walks);
    for (GroupWalk& walk : walks) finish(walk, group);
  }

  void prepare(GroupWalk& walk, const ChannelGroupInfo& info, const DataGroupInfo& group, std::vector<GroupWalk>& walks) {
    walk.info = &info;
    for (const ChannelInfo& channel : info.channels) {
      if (channel.channel_type == 2 && channel.data_type == 0 && channel.bit_count <= 64) walk.master = &channel;
      if (channel.channel_type == 1) walk.reference = &channel;
      if (endsWith(channel.name, ".DataLength") && channel.bit_count <= 64) walk.data_length = &channel;
    }
    if (walk.reference == nullptr) return;
    auto sd = signal_data_.find(walk.reference->data_link);
    if (sd != signal_data_.end()) {
      walk.referenced = &sd->second;
      return;
    }
    for (std::size_t i = 0; i < group.groups.size(); ++i) {
      if (group.groups[i].offset == walk.reference->data_link) {
        if (!group.groups[i].variableLength()) {
          problems_.add("channel %s refers to a channel group that holds no variable-length data", walk.reference->name.c_str());
        }
        walks[i].values.owner = walk.reference->name;
        walk.referenced = &walks[i].values;
        return;
      }
    }
    problems_.add("channel %s refers to a channel group of another data group", walk.reference->name.c_str());
  }

  void walkRecords(const DataGroupInfo& group, std::vector<GroupWalk>& walks) {
    RangeReader reader(source_, group.data_offset + 24, group.data_offset + group.data_length);
    std::vector<unsigned char> record;
    int id_bytes = group.record_id_size;
    while (reader.remaining() > 0) {
      std::uint64_t at = reader.position();
      unsigned char id_field[8] = {};
      if (!reader.read(id_field, static_cast<std::size_t>(id_bytes))) {
        problems_.add("data block at %llu ends inside a record id", static_cast<ull>(group.data_offset));
        return;
      }
      std::uint64_t id = getLe(id_field, id_bytes);
      GroupWalk* walk = findGroup(walks, id, id_bytes);
      if (walk == nullptr) {
        problems_.add("data block at %llu: unknown record id %llu at %llu", static_cast<ull>(group.data_offset),
                      static_cast<ull>(id), static_cast<ull>(at));
        return;
      }
      std::uint64_t length = walk->info->data_bytes + static_cast<std::uint64_t>(walk->info->invalidation_bytes);
      std::size_t prefix = 0;
      if (walk->info->variableLength()) {
        unsigned char length_field[4] = {};
        if (!reader.read(length_field, 4)) {
          problems_.add("data block at %llu ends inside a value length", static_cast<ull>(group.data_offset));
          return;
        }
        length = getLe(length_field, 4);
        prefix = 4;
        record.assign(length_field, length_field + 4);
      }
      if (length > reader.remaining() || length > (1u << 24)) {
        problems_.add("data block at %llu: record at %llu runs past its end", static_cast<ull>(group.data_offset),
                      static_cast<ull>(at));
        return;
      }
      record.resize(prefix + length);
      reader.read(record.data() + prefix, length);
      takeRecord(*walk, record);
    }
  }

  GroupWalk* findGroup(std::vector<GroupWalk>& walks, std::uint64_t id, int id_bytes) {
    if (id_bytes == 0) return walks.size() == 1 ? &walks[0] : nullptr;
    for (GroupWalk& walk : walks) {
      if (walk.info->record_id == id) return &walk;
    }
    return nullptr;
  }

  void takeRecord(GroupWalk& walk, const std::vector<unsigned char>& record) {
    ++walk.records;
    if (walk.info->variableLength()) {
      walk.values.add(record.data(), static_cast<std::uint32_t>(record.size() - 4));
      return;
    }
    walk.digest.add(record.data(), record.size());
    const std::string& name = walk.info->acquisition_name;
    if (walk.master != nullptr) {
      std::uint64_t time = getBits(record.data(), walk.master->bit_position, walk.master->bit_count);
      if (time < walk.last_time && !walk.time_reported) {
        problems_.add("group %s: time goes back at record %llu", name.c_str(), static_cast<ull>(walk.records));
        walk.time_reported = true;
      }
      walk.last_time = time;
    }
    if (walk.reference == nullptr || walk.referenced == nullptr || walk.reference->bit_count > 64) return;
    std::uint64_t offset = getBits(record.data(), walk.reference->bit_position, walk.reference->bit_count);
    const std::uint32_t* length = walk.referenced->lengthAt(offset);
    bool ok = length != nullptr;
    if (ok && walk.data_length != nullptr) {
      ok = getBits(record.data(), walk.data_length->bit_position, walk.data_length->bit_count) == *length;
    }
    if (!ok && !walk.reference_reported) {
      problems_.add("group %s: record %llu refers to variable-length data at %llu, where no value of its length starts",
                    name.c_str(), static_cast<ull>(walk.records), static_cast<ull>(offset));
      walk.reference_reported = true;
    }
  }

  void finish(const GroupWalk& walk, const DataGroupInfo& group) {
    const ChannelGroupInfo& info = *walk.info;
    bool counts_valid = (tree_.standard_flags & 0x0001) == 0;
    if (counts_valid && info.cycle_count != walk.records) {
      problems_.add("group %s in data group at %llu: cycle count %llu but %llu records", info.acquisition_name.c_str(),
                    static_cast<ull>(group.offset), static_cast<ull>(info.cycle_count), static_cast<ull>(walk.records));
    }
    char line[256];
    if (info.variableLength()) {
      describeValues(walk.values);
      return;
    }
    std::snprintf(line, sizeof line, "group %s: %llu records of %u bytes, digest %016llx", info.acquisition_name.c_str(),
                  static_cast<ull>(walk.records), info.data_bytes, static_cast<ull>(walk.digest.value()));
    report_.content_lines.push_back(line);
    if (walk.referenced != nullptr && walk.referenced != &walk.values && signal_data_.count(walk.reference->data_link) != 0) {
      describeValues(*walk.referenced);
    }
  }

  void describeValues(const ValueIndex& values) {
    char line[256];
    std::snprintf(line, sizeof line, "signal data of %s: %zu values, %llu bytes, digest %016llx", values.owner.c_str(),
                  values.starts.size(), static_cast<ull>(values.bytes), static_cast<ull>(values.digest.value()));
    report_.content_lines.push_back(line);
  }

  const ByteSource& source_;
  VerifyReport& report_;
  MdfTree tree_;
  ProblemList problems_;
  std::map<std::uint64_t, ValueIndex> signal_data_;
};

}  // namespace

VerifyReport verifyMdfFile(const ByteSource& source) {
  VerifyReport report;
  Verifier(source, report).run();
  return report;
}

}  // namespace qm
