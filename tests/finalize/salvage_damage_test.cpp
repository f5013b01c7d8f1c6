// Salvaging generated logger files damaged at random places: the output holds no record the
// generator did not write, in order per channel group, and nearly every record that lies wholly
// outside the damage. The records of the clean input are found here by walking its data block
// with the generator's own table of groups, not with the code under test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "tests/support/opened_file.h"
#include "tools/mdfgen/byte_sink.h"
#include "tools/mdfgen/byte_source.h"
#include "tools/mdfgen/frame_records.h"
#include "tools/mdfgen/logger_file_writer.h"
#include "tools/mdfgen/mdf_verifier.h"
#include "tools/mdfgen/random_source.h"

namespace qm {
namespace {

using test::InputKind;
using test::OpenedFile;

constexpr std::uint64_t kFileSize = 256 * 1024;
constexpr int kTrials = 200;

struct Stretch {
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
};

// One record of the clean input: where it lies (record id included) and its payload.
struct InputRecord {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::string payload;
};

// The records of a channel group, each as the group's output must show it.
struct GroupRecords {
  std::vector<std::string> resolved;     // frames: the reference replaced by the value it names
  std::vector<std::string> damaged;      // the payload bytes where the record lay in the damaged input
  std::vector<bool> outside;             // wholly outside every damaged stretch
};

const GroupSpec* loggedGroupOf(std::uint64_t record_id) {
  for (const GroupSpec& logged : loggedGroups()) {
    if (logged.record_id == record_id) return &logged;
  }
  return nullptr;
}

// Offset of the variable-length reference in a group's records, or -1.
int referenceOffset(const GroupSpec& logged) {
  for (const ChannelSpec& channel : logged.channels) {
    if (channel.channel_type == 1) return static_cast<int>(channel.byte_offset);
  }
  return -1;
}

// A frame with its reference replaced by the bytes of the value it names (empty when it names
// none): the same frame reads the same in input and output, wherever its value lies.
std::string resolve(const GroupSpec& logged, const std::string& payload, const std::map<std::uint64_t, std::string>& values) {
  const int at = referenceOffset(logged);
  if (at < 0) return payload;
  std::string resolved = payload;
  std::fill(resolved.begin() + at, resolved.begin() + at + 8, '\0');
  auto value = values.find(test::littleEndianAt(payload, static_cast<std::size_t>(at), 8));
  return resolved + (value == values.end() ? std::string("<none>") : value->second);
}

// Walks the clean input's data block: 1-byte ids, lengths from the generator's table.
std::map<std::uint64_t, std::vector<InputRecord>> inputRecords(const std::string& clean, std::uint64_t start,
                                                                std::uint64_t end) {
  std::map<std::uint64_t, std::vector<InputRecord>> records;
  for (std::uint64_t at = start; at < end;) {
    const GroupSpec* logged = loggedGroupOf(static_cast<unsigned char>(clean[at]));
    if (logged == nullptr) break;  // the blocks behind the data
    std::uint64_t payload = logged->variable_length ? 4 + test::littleEndianAt(clean, at + 1, 4) : logged->data_bytes;
    if (at + 1 + payload > end) break;  // torn
    records[logged->record_id].push_back({at, 1 + payload, clean.substr(at + 1, payload)});
    at += 1 + payload;
  }
  return records;
}

// The values of a variable-length sequence by their offsets.
std::map<std::uint64_t, std::string> valuesByOffset(const std::string& sequence) {
  std::map<std::uint64_t, std::string> values;
  for (std::uint64_t at = 0; at + 4 <= sequence.size();) {
    std::uint64_t size = 4 + test::littleEndianAt(sequence, at, 4);
    values[at] = sequence.substr(at, size);
    at += size;
  }
  return values;
}

bool overlaps(const InputRecord& record, const std::vector<Stretch>& damage) {
  return std::any_of(damage.begin(), damage.end(), [&](const Stretch& s) {
    return record.offset < s.offset + s.bytes && s.offset < record.offset + record.size;
  });
}

// Per record id, the records as the output of the clean input must show them.
std::map<std::uint64_t, GroupRecords> expectedRecords(const std::string& clean, const std::string& damaged,
                                                      std::uint64_t start, std::uint64_t end,
                                                      const std::vector<Stretch>& damage) {
  std::map<std::uint64_t, std::vector<InputRecord>> records = inputRecords(clean, start, end);
  std::string sequence;
  for (const InputRecord& value : records[2]) sequence += value.payload;
  std::map<std::uint64_t, std::string> values = valuesByOffset(sequence);
  // Which value record each offset of the sequence belongs to: a frame whose value was damaged
  // is not wholly outside the damage either.
  std::map<std::uint64_t, const InputRecord*> value_records;
  std::uint64_t offset = 0;
  for (const InputRecord& value : records[2]) {
    value_records[offset] = &value;
    offset += value.payload.size();
  }
  std::map<std::uint64_t, GroupRecords> expected;
  for (const auto& [id, list] : records) {
    const GroupSpec& logged = *loggedGroupOf(id);
    const int reference = referenceOffset(logged);
    GroupRecords& group = expected[id];
    for (const InputRecord& record : list) {
      group.resolved.push_back(resolve(logged, record.payload, values));
      group.damaged.push_back(damaged.substr(record.offset + 1, record.size - 1));
      bool outside = !overlaps(record, damage);
      if (reference >= 0) {
        auto value = value_records.find(test::littleEndianAt(record.payload, static_cast<std::size_t>(reference), 8));
        outside = outside && value != value_records.end() && !overlaps(*value->second, damage);
      }
      group.outside.push_back(outside);
    }
  }
  return expected;
}

// Per record id, the records of the output; the variable-length values as group 2.
std::map<std::uint64_t, std::vector<std::string>> outputRecords(const std::string& saved) {
  OpenedFile file(saved);
  std::map<std::uint64_t, std::vector<std::string>> output;
  if (!file.file) return output;
  for (std::size_t g = 0; g < file.groupCount(); ++g) {
    const ChannelGroupBlock* channel_group = test::channelGroup(file.group(g));
    const GroupSpec* logged = loggedGroupOf(channel_group->record_id);
    if (logged == nullptr || logged->data_bytes == 0) continue;
    std::string data = test::payloadOf(file.group(g)->data);
    std::map<std::uint64_t, std::string> values;
    for (const ChannelLayout& layout : channel_group->channel_layouts) {
      if (layout.variable_data) {
        std::string sequence = test::payloadOf(layout.variable_data);
        values = valuesByOffset(sequence);
        for (const auto& [offset, value] : values) output[2].push_back(value);
      }
    }
    for (std::size_t at = 0; at + logged->data_bytes <= data.size(); at += logged->data_bytes) {
      output[logged->record_id].push_back(resolve(*logged, data.substr(at, logged->data_bytes), values));
    }
  }
  return output;
}

struct Tally {
  std::uint64_t outside = 0;    // records wholly outside the damage
  std::uint64_t recovered = 0;  // of those, in the output
  std::uint64_t false_records = 0;
  std::uint64_t stretches = 0;
};

// Matches the output's records in order against the expected ones: a record wholly outside the
// damage must read as it was written; one that overlaps it may also read as its damaged bytes
// (its id and length survived, the converter cannot know). Anything else is a false record.
// Returns, per record id, which output records are such damaged ones.
std::map<std::uint64_t, std::vector<bool>> compare(const std::map<std::uint64_t, GroupRecords>& expected,
                                                   const std::map<std::uint64_t, std::vector<std::string>>& output,
                                                   Tally& tally, const std::string& trial) {
  std::map<std::uint64_t, std::vector<bool>> damaged;
  for (const auto& [id, group] : expected) {
    for (bool outside : group.outside) tally.outside += outside;
    auto found = output.find(id);
    if (found == output.end()) continue;
    const bool frames = referenceOffset(*loggedGroupOf(id)) >= 0;
    std::size_t next = 0;
    for (const std::string& record : found->second) {
      std::size_t i = next;
      for (; i < group.resolved.size(); ++i) {
        if (record == group.resolved[i]) break;
        // A damaged frame's reference cannot be resolved; its other bytes must be as they lay.
        std::string own = frames ? record.substr(0, 15) : record;
        if (!group.outside[i] && own == group.damaged[i].substr(0, own.size()) &&
            (frames || record.size() == group.damaged[i].size())) {
          break;
        }
      }
      damaged[id].push_back(i < group.resolved.size() && !group.outside[i]);
      if (i == group.resolved.size()) {
        ++tally.false_records;
        ADD_FAILURE() << trial << ": a record of id " << id << " the generator did not write, after record " << next;
        continue;
      }
      tally.recovered += group.outside[i];
      next = i + 1;
    }
  }
  return damaged;
}

// Whether the checker's complaint names a record (or the one before it, for a time going back)
// that the damage reached inside: its id and length read, so the scan takes it as it lies.
bool aboutDamagedRecord(const std::string& problem, const std::map<std::uint64_t, std::vector<bool>>& damaged) {
  for (const GroupSpec& logged : loggedGroups()) {
    const std::string prefix = "group " + std::string(logged.acquisition_name) + ": ";
    if (problem.rfind(prefix, 0) != 0 || logged.data_bytes == 0) continue;
    const std::size_t at = problem.find("record ");
    if (at == std::string::npos) return false;
    const std::size_t number = std::stoul(problem.substr(at + 7));  // counted from 1
    auto group = damaged.find(logged.record_id);
    if (group == damaged.end() || number == 0 || number > group->second.size()) return false;
    return group->second[number - 1] || (number >= 2 && group->second[number - 2]);
  }
  return false;
}

std::vector<Stretch> damageAt(std::string& bytes, std::uint64_t start, std::uint64_t end, RandomSource& random,
                              int trial) {
  std::vector<Stretch> damage;
  const int count = static_cast<int>(random.between(1, 5));
  for (int i = 0; i < count; ++i) {
    // Lengths spread evenly over the scales from one byte to 64 KiB.
    const std::uint64_t length = std::uint64_t{1} << random.below(17);
    Stretch s{start + random.below(static_cast<std::uint32_t>(end - start)), length + random.below(static_cast<std::uint32_t>(length))};
    s.bytes = std::min<std::uint64_t>(s.bytes, 64 * 1024);
    if (i == 0 && trial % 10 == 0) s.offset = start;            // at the very start of the data
    if (i == 0 && trial % 10 == 1) s.offset = end - s.bytes;    // reaching the end
    s.bytes = std::min(s.bytes, end - s.offset);
    const std::uint32_t kind = random.below(3);
    for (std::uint64_t at = s.offset; at < s.offset + s.bytes; ++at) {
      bytes[at] = kind == 0 ? '\0' : kind == 1 ? '\xff' : static_cast<char>(random.below(256));
    }
    damage.push_back(s);
  }
  return damage;
}

std::string finalized(const std::string& bytes, InputKind kind, bool salvage, LossReport* report) {
  OpenedFile file(bytes, kind);
  finalize(file.file.get(), report, salvage);
  return test::savedBytes(file.file.get());
}

TEST(SalvageDamage, RecoversTheRecordsOutsideRandomDamageAndInventsNone) {
  Tally tally;
  std::uint64_t problems = 0;
  std::uint64_t unseen = 0;  // complaints about records damaged inside
  for (int trial = 0; trial < kTrials; ++trial) {
    const std::string name = "trial " + std::to_string(trial);
    StringSink sink;
    LoggerFileSettings settings;
    settings.size = kFileSize;
    settings.seed = 100 + static_cast<std::uint64_t>(trial % 25);
    ASSERT_TRUE(writeLoggerFile(settings, sink));
    const std::string clean = sink.bytes();
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    {
      OpenedFile opened(clean);
      ASSERT_TRUE(opened.file);
      const PayloadBlock* block = opened.group(0)->dataBlock();
      start = block->payloadStart();
      end = start + block->dataSectionSize();
    }
    RandomSource random(7000 + static_cast<std::uint64_t>(trial));
    std::string damaged = clean;
    const std::vector<Stretch> damage = damageAt(damaged, start, end, random, trial);

    // Half the trials read the records from a stream, as with -b 0.
    const InputKind kind = trial % 2 ? InputKind::kStreamed : InputKind::kInMemory;
    LossReport report;
    const std::string saved = finalized(damaged, kind, true, &report);
    tally.stretches += report.skipped.size();
    std::string detail = name;
    for (const Stretch& s : damage) detail += " damage " + std::to_string(s.offset) + "+" + std::to_string(s.bytes);
    for (const SkippedStretch& s : report.skipped) detail += " skipped " + std::to_string(s.offset) + "+" + std::to_string(s.bytes);
    const std::map<std::uint64_t, std::vector<bool>> damaged_records =
        compare(expectedRecords(clean, damaged, start, end, damage), outputRecords(saved), tally, detail);
    // Damage inside a record that leaves its id and length in place (a flipped byte of a time
    // or of a reference) is not seen by the scan, with or without salvaging: the checker may
    // complain about such a record, and about nothing else.
    VerifyReport verified = verifyMdfFile(MemorySource(saved));
    for (const std::string& problem : verified.problems) {
      if (aboutDamagedRecord(problem, damaged_records)) {
        ++unseen;
      } else {
        ++problems;
        ADD_FAILURE() << detail << ": " << problem;
      }
    }
  }
  const double share = tally.outside ? 100.0 * static_cast<double>(tally.recovered) / static_cast<double>(tally.outside) : 0;
  std::printf("[ salvage  ] %d trials, %llu stretches skipped: %llu of %llu records outside the damage recovered "
              "(%.3f%%), %llu false records, %llu complaints of the checker (and %llu about records damaged inside)\n",
              kTrials, static_cast<unsigned long long>(tally.stretches), static_cast<unsigned long long>(tally.recovered),
              static_cast<unsigned long long>(tally.outside), share, static_cast<unsigned long long>(tally.false_records),
              static_cast<unsigned long long>(problems), static_cast<unsigned long long>(unseen));
  EXPECT_EQ(tally.false_records, 0u);
  EXPECT_EQ(problems, 0u);
  EXPECT_GE(share, 99.0);
}

// A section large enough to be scanned in two lanes: both stop at the first stretch, and the
// salvaged output is the one records read from a stream give.
TEST(SalvageDamage, TwoLanesStopTogetherAndSalvageAsOne) {
  StringSink sink;
  LoggerFileSettings settings;
  settings.size = 20 << 20;
  settings.seed = 5;
  ASSERT_TRUE(writeLoggerFile(settings, sink));
  std::string bytes = sink.bytes();
  RandomSource random(99);
  for (std::uint64_t at : {std::uint64_t{300000}, std::uint64_t{7 << 20}, std::uint64_t{19 << 20}}) {
    for (std::uint64_t i = at; i < at + 5000; ++i) bytes[i] = static_cast<char>(random.below(256));
  }
  LossReport in_memory;
  LossReport streamed;
  const std::string saved = finalized(bytes, InputKind::kInMemory, true, &in_memory);
  EXPECT_EQ(finalized(bytes, InputKind::kStreamed, true, &streamed), saved);
  EXPECT_EQ(in_memory.skipped.size(), 3u);
  EXPECT_EQ(describeLosses(in_memory), describeLosses(streamed));
  VerifyReport verified = verifyMdfFile(MemorySource(saved));
  EXPECT_TRUE(verified.ok()) << (verified.ok() ? "" : verified.problems.front());
}

}  // namespace
}  // namespace qm
