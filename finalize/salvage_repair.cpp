#include "finalize/salvage_repair.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <new>
#include <optional>

#include "finalize/record_salvage.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "stream/memory_stream.h"

namespace qm {

namespace {

constexpr std::uint64_t kVlsdLengthPrefix = 4;
// Learning a segment's shift: the first references of the segment are tried against its first
// values, and each guess is scored on the references after them.
constexpr std::size_t kAnchors = 4;
constexpr std::size_t kAnchorValues = 8;
constexpr std::size_t kChecks = 16;

// Bits of a record as the channel layout places them, both byte orders, at any position.
struct BitField {
  std::uint64_t position = 0;
  std::uint32_t count = 0;
  bool little_endian = true;

  bool fits(std::uint64_t record_bytes) const {
    return count >= 1 && count <= 64 && position <= record_bytes * 8 && count <= record_bytes * 8 - position;
  }
  std::uint64_t read(const std::uint8_t* record) const {
    std::uint64_t value = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint64_t bit = position + i;
      const unsigned shift = little_endian ? bit % 8 : 7 - bit % 8;
      const std::uint64_t set = (record[bit / 8] >> shift) & 1u;
      value |= set << (little_endian ? i : count - 1 - i);
    }
    return value;
  }
  void write(std::uint8_t* record, std::uint64_t value) const {
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint64_t bit = position + i;
      const unsigned shift = little_endian ? bit % 8 : 7 - bit % 8;
      const std::uint64_t set = (value >> (little_endian ? i : count - 1 - i)) & 1u;
      record[bit / 8] = static_cast<std::uint8_t>((record[bit / 8] & ~(1u << shift)) | (set << shift));
    }
  }
};

// Every stretch lists the channel groups in the same order: where one group stands is looked up once.
class CollectedBytes {
 public:
  CollectedBytes(const std::vector<SalvagedStretch>& salvaged, std::uint64_t record_id) : salvaged_(salvaged) {
    const auto& first = salvaged.front().collected;
    for (std::size_t i = 0; i < first.size(); ++i) {
      if (first[i].first == record_id) place_ = i;
    }
  }
  // The group's payload bytes when the scan reached the stretch.
  std::uint64_t before(std::size_t stretch) const {
    const auto& collected = salvaged_[stretch].collected;
    return place_ < collected.size() ? collected[place_].second : 0;
  }

 private:
  const std::vector<SalvagedStretch>& salvaged_;
  std::size_t place_ = SIZE_MAX;
};

// Puts a stream taken from the table back in its place.
void putBack(SortTable& table, std::uint64_t record_id, std::unique_ptr<Stream> stream) {
  stream->seek(0, kSeekSet);
  table.insert(record_id, SortEntry{SortedPayloads::holding(std::move(stream)), 0});
}

bool readAll(Stream& stream, std::vector<std::uint8_t>& bytes) {
  const std::int64_t size = streamSize(&stream);
  if (size < 0 || !setPosition(&stream, 0)) return false;
  try {
    bytes.resize(static_cast<std::size_t>(size));
  } catch (const std::bad_alloc&) {
    return false;
  }
  std::size_t done = 0;
  while (done < bytes.size()) {
    std::int64_t got = stream.read(bytes.data() + done, bytes.size() - done);
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  return true;
}

// The variable-length values of one group as the scan collected them: their bytes, where each
// starts, and where each segment (the data between two damaged stretches) begins.
struct ValueIndex {
  std::vector<std::uint8_t> bytes;
  std::vector<std::uint64_t> starts;
  std::vector<std::uint64_t> segment_start;  // per segment, in bytes; the end at the back
  std::vector<std::uint64_t> distrusted;     // values right before a stretch, in order

  // The value starting at `offset` inside the given segment, if there is one.
  std::optional<std::uint64_t> valueAt(std::uint64_t offset, std::size_t segment) const {
    if (segment + 1 >= segment_start.size()) return std::nullopt;
    if (offset < segment_start[segment] || offset >= segment_start[segment + 1]) return std::nullopt;
    auto it = std::lower_bound(starts.begin(), starts.end(), offset);
    if (it == starts.end() || *it != offset) return std::nullopt;
    return static_cast<std::uint64_t>(it - starts.begin());
  }
  // The first `most` value starts of a segment.
  std::vector<std::uint64_t> firstOf(std::size_t segment, std::size_t most) const {
    auto from = std::lower_bound(starts.begin(), starts.end(), segment_start[segment]);
    std::vector<std::uint64_t> first;
    for (; from != starts.end() && *from < segment_start[segment + 1] && first.size() < most; ++from) {
      first.push_back(*from);
    }
    return first;
  }
  std::uint64_t sizeOf(std::uint64_t value) const {
    const std::uint64_t end = value + 1 < starts.size() ? starts[value + 1] : bytes.size();
    return end - starts[value];
  }
  std::size_t segmentOf(std::uint64_t value) const {
    return static_cast<std::size_t>(
        std::upper_bound(segment_start.begin(), segment_start.end() - 1, starts[value]) - segment_start.begin() - 1);
  }
};

bool indexValues(Stream& values, const std::vector<SalvagedStretch>& salvaged, std::uint64_t record_id,
                 ValueIndex& index) {
  if (!readAll(values, index.bytes)) return false;
  try {
    const std::uint64_t size = index.bytes.size();
    for (std::uint64_t at = 0; size - at >= kVlsdLengthPrefix;) {
      const std::uint64_t value = kVlsdLengthPrefix + littleEndianValue(index.bytes.data() + at, kVlsdLengthPrefix);
      if (value > size - at) break;
      index.starts.push_back(at);
      at += value;
    }
    index.bytes.resize(index.starts.empty() ? 0 : index.starts.back() + index.sizeOf(index.starts.size() - 1));
    index.segment_start.push_back(0);
    CollectedBytes collected(salvaged, record_id);
    for (std::size_t i = 0; i < salvaged.size(); ++i) index.segment_start.push_back(collected.before(i));
    index.segment_start.push_back(size);
    for (std::size_t i = 0; i < salvaged.size(); ++i) {
      if (salvaged[i].record_before != record_id) continue;
      auto end = std::lower_bound(index.starts.begin(), index.starts.end(), index.segment_start[i + 1]);
      if (end != index.starts.begin() && *(end - 1) >= index.segment_start[i]) {
        index.distrusted.push_back(static_cast<std::uint64_t>(end - 1 - index.starts.begin()));
      }
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

class GroupRepair;

// How a segment's first records interleave, from the ids the scan took: which frame came after
// how many values of the segment.
class Pairing {
 public:
  Pairing(const std::vector<SalvagedStretch>& salvaged, std::uint64_t record_id, std::uint64_t values_id)
      : salvaged_(salvaged), record_id_(record_id), values_id_(values_id) {}

  // (record, value) pairs among the segment's first records: each frame with the value that
  // `distance` values from the last one before it (0: that one, as loggers write a frame's
  // value right before it), as record and value indexes of the whole group.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> pairs(const GroupRepair& repair, const ValueIndex& values,
                                                             std::size_t segment, std::int64_t distance) const;

  // How far, in values, the value a frame names lies from the last value before it: learnt
  // from the records before the first stretch, where the logger's offsets are the output's.
  std::int64_t distance(const GroupRepair& repair, const BitField& field, const ValueIndex& values) const;

 private:
  const std::vector<std::uint64_t>* leadOf(std::size_t segment) const {
    if (segment == 0) return salvaged_.empty() ? nullptr : &salvaged_[0].lead_before;
    return segment <= salvaged_.size() ? &salvaged_[segment - 1].lead_after : nullptr;
  }

  const std::vector<SalvagedStretch>& salvaged_;
  std::uint64_t record_id_;
  std::uint64_t values_id_;
};

// One fixed-length channel group's records, loaded for the repair.
class GroupRepair {
 public:
  GroupRepair(std::vector<std::uint8_t> bytes, std::uint64_t record_bytes, const std::vector<SalvagedStretch>& salvaged,
              std::uint64_t record_id)
      : bytes_(std::move(bytes)), record_bytes_(record_bytes), count_(bytes_.size() / record_bytes),
        keep_(count_, 1), dropped_in_(salvaged.size() + 1) {
    segment_start_.push_back(0);
    CollectedBytes collected(salvaged, record_id);
    for (std::size_t i = 0; i < salvaged.size(); ++i) {
      segment_start_.push_back(std::min(count_, collected.before(i) / record_bytes));
    }
    segment_start_.push_back(count_);
  }

  std::size_t segments() const { return segment_start_.size() - 1; }
  std::uint64_t count() const { return count_; }
  bool kept(std::uint64_t i) const { return keep_[i] != 0; }
  const std::uint8_t* record(std::uint64_t i) const { return bytes_.data() + i * record_bytes_; }

  // The group's record right before each stretch it was the last record before.
  std::uint64_t dropBeforeDamage(const std::vector<SalvagedStretch>& salvaged, std::uint64_t record_id) {
    std::uint64_t dropped = 0;
    for (std::size_t i = 0; i < salvaged.size(); ++i) {
      const std::uint64_t last = segment_start_[i + 1];
      if (salvaged[i].record_before != record_id || last == segment_start_[i] || !keep_[last - 1]) continue;
      keep_[last - 1] = 0;
      ++dropped;
      ++dropped_in_[i];
    }
    return dropped;
  }

  // Damaged bytes that still parse as records carry times that break the group's order: a
  // record before the last one kept, or ahead of the next record that itself fits, is left out.
  std::uint64_t dropOutOfTime(const MasterValue& master) {
    std::vector<std::optional<std::uint64_t>> keys(count_);
    for (std::uint64_t i = 0; i < count_; ++i) {
      if (keep_[i]) keys[i] = masterKey(master, record(i), record_bytes_);
    }
    return dropOutOfOrder(keys, false);
  }

  // Maps each kept record's reference to the value it names among `values`: per segment, the
  // logger's offsets are the output's moved back by what the stretches before it lost. The
  // records whose value is not there, or whose values break the group's order, are left out.
  // Returns the value of each record (none for those left out) and how many were left out.
  std::vector<std::optional<std::uint64_t>> mapReferences(const BitField& field, const ValueIndex& values,
                                                          const Pairing& pairing, std::uint64_t& dropped) {
    std::vector<std::optional<std::uint64_t>> shift(segments());
    shift[0] = 0;  // before the first stretch the logger's offsets are the output's
    const std::int64_t distance = pairing.distance(*this, field, values);
    for (std::size_t segment = 1; segment < segments(); ++segment) {
      shift[segment] = learnShift(field, values, segment, shift[segment - 1], pairing, distance);
    }
    std::vector<std::optional<std::uint64_t>> named(count_);
    for (std::size_t segment = 0; segment < segments(); ++segment) {
      for (std::uint64_t i = segment_start_[segment]; i < segment_start_[segment + 1]; ++i) {
        if (!keep_[i]) continue;
        const std::uint64_t reference = field.read(record(i));
        // A record right behind a stretch may still refer to a value from before it.
        for (std::size_t from = segment + 1; from-- > 0 && from + 2 > segment && !named[i];) {
          if (shift[from] && reference >= *shift[from]) named[i] = values.valueAt(reference - *shift[from], from);
        }
        if (named[i] && std::binary_search(values.distrusted.begin(), values.distrusted.end(), *named[i])) {
          named[i].reset();
        }
      }
    }
    // Each record has a value of its own, written in order.
    dropped = dropOutOfOrder(named, true);
    return named;
  }

  std::uint64_t segmentStart(std::size_t segment) const { return segment_start_[segment]; }

  void writeReference(std::uint64_t i, const BitField& field, std::uint64_t offset) {
    field.write(bytes_.data() + i * record_bytes_, offset);
  }

  // The records kept, as one stream.
  std::unique_ptr<Stream> keptRecords() const {
    auto stream = std::make_unique<MemoryStream>();
    for (std::uint64_t i = 0; i < count_; ++i) {
      if (keep_[i]) stream->write(record(i), static_cast<std::size_t>(record_bytes_));
    }
    stream->seek(0, kSeekSet);
    return stream;
  }

  // Records dropped per segment.
  const std::vector<std::uint64_t>& droppedPerSegment() const { return dropped_in_; }

 private:
  // Drops every kept record without a key, and those that break the keys' order (rising, or
  // strictly rising): one below the last kept, or above the next one that is not itself below
  // the last kept.
  std::uint64_t dropOutOfOrder(const std::vector<std::optional<std::uint64_t>>& keys, bool strictly) {
    std::uint64_t dropped = 0;
    std::optional<std::uint64_t> last;
    std::uint64_t next = 0;  // the next kept record with a key, after i
    auto below = [&](std::uint64_t a, std::uint64_t b) { return strictly ? a <= b : a < b; };
    for (std::uint64_t i = 0; i < count_; ++i) {
      if (!keep_[i]) continue;
      bool drop = !keys[i] || (last && below(*keys[i], *last));
      if (!drop) {
        for (next = std::max(next, i + 1); next < count_ && (!keep_[next] || !keys[next]); ++next) {
        }
        drop = next < count_ && below(*keys[next], *keys[i]) && !(last && below(*keys[next], *last));
      }
      if (drop) {
        keep_[i] = 0;
        ++dropped;
        ++dropped_in_[segmentOf(i)];
      } else {
        last = keys[i];
      }
    }
    return dropped;
  }

  std::size_t segmentOf(std::uint64_t i) const {
    return static_cast<std::size_t>(std::upper_bound(segment_start_.begin(), segment_start_.end() - 1, i) -
                                    segment_start_.begin() - 1);
  }

  // The distance between the logger's offsets and the output's in one segment. Guesses come
  // from the segment's first records: a frame and the value the pairing says it names (the
  // logger's own order, learnt before the first stretch), else any of the first frames and
  // values. A guess counts when most of the segment's first references then land on a value,
  // and only when no other guess does as well: loggers' values are often all of one size, and
  // a guess one value off would fit them all.
  std::optional<std::uint64_t> learnShift(const BitField& field, const ValueIndex& values, std::size_t segment,
                                          std::optional<std::uint64_t> before, const Pairing& pairing,
                                          std::int64_t distance) const {
    std::vector<std::uint64_t> references;
    for (std::uint64_t i = segment_start_[segment]; i < segment_start_[segment + 1] && references.size() < kChecks; ++i) {
      if (keep_[i]) references.push_back(field.read(record(i)));
    }
    auto score = [&](std::uint64_t shift) {
      std::size_t landed = 0;
      for (std::uint64_t reference : references) {
        landed += reference >= shift && values.valueAt(reference - shift, segment).has_value();
      }
      return landed;
    };
    // Values are only ever lost, so offsets move back, never forward, and never less than before.
    auto possible = [&](std::uint64_t reference, std::uint64_t start) {
      return reference >= start && !(before && reference - start < *before);
    };
    for (const auto& [record, value] : pairing.pairs(*this, values, segment, distance)) {
      if (!keep_[record]) continue;
      const std::uint64_t reference = field.read(this->record(record));
      const std::uint64_t start = values.starts[value];
      if (possible(reference, start) && score(reference - start) * 2 > references.size()) return reference - start;
    }
    const std::vector<std::uint64_t> starts = values.firstOf(segment, kAnchorValues);
    std::optional<std::uint64_t> best;
    std::size_t best_score = 0;
    bool tied = false;
    for (std::size_t a = 0; a < references.size() && a < kAnchors; ++a) {
      for (std::uint64_t start : starts) {
        if (!possible(references[a], start)) continue;
        const std::uint64_t shift = references[a] - start;
        const std::size_t landed = score(shift);
        if (landed > best_score) {
          best_score = landed;
          best = shift;
          tied = false;
        } else if (landed == best_score && best && shift != *best) {
          tied = true;
        }
      }
    }
    if (tied || best_score * 2 <= references.size()) return std::nullopt;
    return best;
  }

  std::vector<std::uint8_t> bytes_;
  std::uint64_t record_bytes_;
  std::uint64_t count_;
  std::vector<std::uint8_t> keep_;
  std::vector<std::uint64_t> segment_start_;  // record index where each segment begins; count at the end
  std::vector<std::uint64_t> dropped_in_;
};

std::vector<std::pair<std::uint64_t, std::uint64_t>> Pairing::pairs(const GroupRepair& repair, const ValueIndex& values,
                                                                     std::size_t segment, std::int64_t distance) const {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> found;
  const std::vector<std::uint64_t>* lead = leadOf(segment);
  if (lead == nullptr || segment + 1 >= values.segment_start.size()) return found;
  const auto first_value = static_cast<std::uint64_t>(
      std::lower_bound(values.starts.begin(), values.starts.end(), values.segment_start[segment]) - values.starts.begin());
  std::uint64_t records = 0;
  std::uint64_t values_before = 0;
  for (std::uint64_t id : *lead) {
    if (id == values_id_) ++values_before;
    if (id != record_id_) continue;
    const std::int64_t value = static_cast<std::int64_t>(first_value + values_before) - 1 + distance;
    const std::uint64_t record = repair.segmentStart(segment) + records++;
    if (value >= 0 && static_cast<std::uint64_t>(value) < values.starts.size() && record < repair.count() &&
        values.segmentOf(static_cast<std::uint64_t>(value)) == segment) {
      found.emplace_back(record, static_cast<std::uint64_t>(value));
    }
    if (found.size() == kAnchors) break;
  }
  return found;
}

std::int64_t Pairing::distance(const GroupRepair& repair, const BitField& field, const ValueIndex& values) const {
  const std::vector<std::uint64_t>* lead = leadOf(0);
  if (lead == nullptr) return 0;
  std::map<std::int64_t, std::size_t> votes;
  std::uint64_t records = 0;
  std::int64_t values_before = 0;
  for (std::uint64_t id : *lead) {
    if (id == values_id_) ++values_before;
    if (id != record_id_) continue;
    const std::uint64_t record = records++;
    if (record >= repair.segmentStart(1)) break;
    if (std::optional<std::uint64_t> value = values.valueAt(field.read(repair.record(record)), 0)) {
      ++votes[static_cast<std::int64_t>(*value) - (values_before - 1)];
    }
  }
  std::int64_t best = 0;
  std::size_t most = 0;
  for (const auto& [distance, count] : votes) {
    if (count > most) {
      most = count;
      best = distance;
    }
  }
  return best;
}

// A channel whose value is an offset into a variable-length group of this data group.
struct Reference {
  BitField field;
  std::uint64_t values_id = 0;
};

const ChannelGroupBlock* variableLengthGroupOf(const DataGroupBlock& group, const BlockRef& target) {
  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    if (block == target && channel_group && (channel_group->flags & kChannelGroupVlsd)) return channel_group;
  }
  return nullptr;
}

std::vector<Reference> referencesOf(const DataGroupBlock& group, const ChannelGroupBlock& channel_group) {
  std::vector<Reference> references;
  for (const ChannelLayout& layout : channel_group.channel_layouts) {
    if (!layout.variable_data) continue;
    const ChannelGroupBlock* values = variableLengthGroupOf(group, layout.variable_data);
    BitField field{layout.bit_position, static_cast<std::uint32_t>(std::min<std::uint64_t>(layout.bit_count, 65)),
                   layout.little_endian};
    if (values && field.fits(channel_group.data_bytes)) references.push_back({field, values->record_id});
  }
  return references;
}

void noteDrops(LossReport* report, LossReason reason, std::uint64_t record_id, std::uint64_t records,
               std::uint64_t record_bytes) {
  if (report == nullptr || records == 0) return;
  RecordLoss loss;
  loss.reason = reason;
  loss.record_id = record_id;
  loss.records = records;
  loss.bytes = records * record_bytes;
  report->losses.push_back(loss);
}

}  // namespace

void repairSalvagedRecords(const DataGroupBlock& group, SortTable& table, std::vector<SalvagedStretch>& salvaged,
                           LossReport* report) {
  if (salvaged.empty()) return;
  // A variable-length group whose only referrer is repaired here keeps only the values the
  // records kept name: values of records lost in a stretch, and damaged bytes read as values.
  HashMap<std::uint64_t, std::uint32_t> referrers;
  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    if (channel_group == nullptr || (channel_group->flags & kChannelGroupVlsd)) continue;
    for (const Reference& reference : referencesOf(group, *channel_group)) {
      if (std::uint32_t* count = referrers.find(reference.values_id)) {
        ++*count;
      } else {
        referrers.insert(reference.values_id, 1);
      }
    }
  }
  auto afterStretch = [&](std::size_t segment, std::uint64_t records) {
    if (segment == 0 || segment > salvaged.size()) return;
    std::uint64_t& after = salvaged[segment - 1].stretch.records_after;
    after -= std::min(after, records);
  };

  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    if (channel_group == nullptr || (channel_group->flags & kChannelGroupVlsd) || channel_group->data_bytes == 0) {
      continue;
    }
    const std::uint64_t record_id = channel_group->record_id;
    const MasterValue master = masterValueOf(*channel_group);
    const std::vector<Reference> references = referencesOf(group, *channel_group);
    const bool before_damage = std::any_of(salvaged.begin(), salvaged.end(), [&](const SalvagedStretch& stretch) {
      return stretch.record_before == record_id;
    });
    if ((!master.present && references.empty() && !before_damage) || !table.contains(record_id)) continue;

    std::unique_ptr<Stream> stream = takeStream(table, record_id);
    std::vector<std::uint8_t> bytes;
    if (!readAll(*stream, bytes)) {
      putBack(table, record_id, std::move(stream));
      continue;
    }
    stream.reset();
    GroupRepair repair(std::move(bytes), channel_group->data_bytes, salvaged, record_id);
    const std::uint64_t record_bytes = group.record_id_size + channel_group->data_bytes;
    noteDrops(report, LossReason::kRecordBeforeDamage, record_id, repair.dropBeforeDamage(salvaged, record_id),
              record_bytes);
    if (master.present) {
      noteDrops(report, LossReason::kRecordOutOfTime, record_id, repair.dropOutOfTime(master), record_bytes);
    }
    for (const Reference& reference : references) {
      std::unique_ptr<Stream> values = takeStream(table, reference.values_id);
      ValueIndex index;
      if (!indexValues(*values, salvaged, reference.values_id, index)) {
        putBack(table, reference.values_id, std::move(values));
        continue;
      }
      std::uint64_t dropped = 0;
      const Pairing pairing(salvaged, record_id, reference.values_id);
      const std::vector<std::optional<std::uint64_t>> named = repair.mapReferences(reference.field, index, pairing, dropped);
      noteDrops(report, LossReason::kSignalValueLost, reference.values_id, dropped, record_bytes);
      const std::uint32_t* sharing = referrers.find(reference.values_id);
      if (sharing && *sharing > 1) {
        for (std::uint64_t i = 0; i < repair.count(); ++i) {
          if (repair.kept(i)) repair.writeReference(i, reference.field, index.starts[*named[i]]);
        }
        putBack(table, reference.values_id, std::move(values));
        continue;
      }
      // Values named in order: each kept value follows the one before in the new sequence.
      values.reset();
      auto kept = std::make_unique<MemoryStream>();
      std::vector<std::uint64_t> unnamed(repair.segments());
      std::uint64_t unnamed_bytes = 0;
      std::uint64_t value = 0;
      for (std::uint64_t i = 0; i < repair.count(); ++i) {
        if (!repair.kept(i)) continue;
        for (; value < *named[i]; ++value) {
          ++unnamed[index.segmentOf(value)];
          unnamed_bytes += index.sizeOf(value);
        }
        repair.writeReference(i, reference.field, static_cast<std::uint64_t>(kept->tell()));
        kept->write(index.bytes.data() + index.starts[value], static_cast<std::size_t>(index.sizeOf(value)));
        ++value;
      }
      for (; value < index.starts.size(); ++value) {
        ++unnamed[index.segmentOf(value)];
        unnamed_bytes += index.sizeOf(value);
      }
      std::uint64_t unnamed_count = 0;
      for (std::size_t segment = 0; segment < unnamed.size(); ++segment) {
        afterStretch(segment, unnamed[segment]);
        unnamed_count += unnamed[segment];
      }
      if (report && unnamed_count > 0) {
        RecordLoss loss;
        loss.reason = LossReason::kUnnamedSignalValue;
        loss.record_id = reference.values_id;
        loss.records = unnamed_count;
        loss.bytes = unnamed_bytes + unnamed_count * group.record_id_size;
        report->losses.push_back(loss);
      }
      putBack(table, reference.values_id, std::move(kept));
    }
    const std::vector<std::uint64_t>& dropped = repair.droppedPerSegment();
    for (std::size_t segment = 1; segment < dropped.size(); ++segment) afterStretch(segment, dropped[segment]);
    putBack(table, record_id, repair.keptRecords());
  }
}

}  // namespace qm
