#include "finalize/salvage_repair.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <optional>

#include "finalize/data_section_reader.h"
#include "finalize/record_salvage.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "stream/memory_stream.h"

namespace qm {

namespace {

constexpr std::uint64_t kVlsdLengthPrefix = 4;
// Records looked at next to a stretch, on either side.
constexpr std::uint64_t kBesideStretch = 2;
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

// The variable-length values of one group as the output holds them: where each starts, and
// where each segment (the stretch of data between two damaged stretches) begins.
struct ValueIndex {
  std::vector<std::uint64_t> starts;
  std::vector<std::uint64_t> segment_start;  // per segment, in bytes; one more at the end

  bool startsValue(std::uint64_t offset, std::size_t segment) const {
    if (segment + 1 >= segment_start.size()) return false;
    if (offset < segment_start[segment] || offset >= segment_start[segment + 1]) return false;
    return std::binary_search(starts.begin(), starts.end(), offset);
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
};

bool indexValues(Stream& values, const std::vector<SalvagedStretch>& salvaged, std::uint64_t record_id,
                 ValueIndex& index) {
  const std::int64_t size = streamSize(&values);
  if (size < 0) return false;
  DataSectionReader reader(&values, static_cast<std::uint64_t>(size));
  try {
    while (reader.remaining() >= kVlsdLengthPrefix) {
      const std::uint8_t* prefix = reader.ensure(kVlsdLengthPrefix);
      if (prefix == nullptr) return false;
      std::uint64_t skip = kVlsdLengthPrefix + littleEndianValue(prefix, kVlsdLengthPrefix);
      if (skip > reader.remaining()) break;
      index.starts.push_back(reader.position());
      while (skip > 0) {
        const std::uint64_t step = std::min<std::uint64_t>(skip, DataSectionReader::kPieceSize);
        if (reader.ensure(step) == nullptr) return false;
        reader.consume(static_cast<std::size_t>(step));
        skip -= step;
      }
    }
    index.segment_start.push_back(0);
    CollectedBytes collected(salvaged, record_id);
    for (std::size_t i = 0; i < salvaged.size(); ++i) index.segment_start.push_back(collected.before(i));
    index.segment_start.push_back(static_cast<std::uint64_t>(size));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// A channel whose value is an offset into a variable-length group of this data group.
struct Reference {
  BitField field;
  std::uint64_t values_id = 0;
};

// One fixed-length channel group's records, loaded for the repair.
class GroupRepair {
 public:
  GroupRepair(std::vector<std::uint8_t> bytes, std::uint64_t record_bytes, const std::vector<SalvagedStretch>& salvaged,
              std::uint64_t record_id)
      : bytes_(std::move(bytes)), record_bytes_(record_bytes), count_(bytes_.size() / record_bytes),
        keep_(count_, 1) {
    segment_start_.push_back(0);
    CollectedBytes collected(salvaged, record_id);
    for (std::size_t i = 0; i < salvaged.size(); ++i) {
      segment_start_.push_back(std::min(count_, collected.before(i) / record_bytes));
    }
    segment_start_.push_back(count_);
  }

  std::size_t segments() const { return segment_start_.size() - 1; }

  // Drops the records beside each stretch whose master runs ahead of the next record kept.
  std::uint64_t dropOutOfTime(const MasterValue& master) {
    std::uint64_t dropped = 0;
    for (std::size_t stretch = 1; stretch < segment_start_.size() - 1; ++stretch) {
      const std::uint64_t at = segment_start_[stretch];
      const std::uint64_t from = at >= kBesideStretch ? at - kBesideStretch : 0;
      const std::uint64_t to = std::min(count_, at + kBesideStretch);
      // From the back, so that each record is compared with one already judged.
      for (std::uint64_t i = to; i-- > from;) {
        if (!keep_[i]) continue;
        std::optional<std::uint64_t> next = nextKept(i);
        if (!next) continue;
        std::optional<std::uint64_t> key = masterKey(master, record(i), record_bytes_);
        std::optional<std::uint64_t> next_key = masterKey(master, record(*next), record_bytes_);
        if (next_key && (!key || *key > *next_key)) {
          keep_[i] = 0;
          ++dropped;
          noteDrop(i);
        }
      }
    }
    return dropped;
  }

  // Rewrites the references of `reference` into `values`; drops the records whose value is
  // not in the output.
  std::uint64_t remap(const BitField& field, const ValueIndex& values) {
    std::vector<std::optional<std::uint64_t>> shift(segments());
    shift[0] = 0;  // before the first stretch the logger's offsets are the output's
    for (std::size_t segment = 1; segment < segments(); ++segment) {
      shift[segment] = learnShift(field, values, segment, shift[segment - 1]);
    }
    std::uint64_t dropped = 0;
    for (std::size_t segment = 0; segment < segments(); ++segment) {
      for (std::uint64_t i = segment_start_[segment]; i < segment_start_[segment + 1]; ++i) {
        if (!keep_[i]) continue;
        std::uint8_t* bytes = record(i);
        const std::uint64_t reference = field.read(bytes);
        // A record right behind a stretch may still refer to a value from before it.
        std::optional<std::uint64_t> placed;
        for (std::size_t from = segment + 1; from-- > 0 && from + 2 > segment && !placed;) {
          if (shift[from] && reference >= *shift[from] && values.startsValue(reference - *shift[from], from)) {
            placed = reference - *shift[from];
          }
        }
        if (placed) {
          field.write(bytes, *placed);
        } else {
          keep_[i] = 0;
          ++dropped;
          noteDrop(i);
        }
      }
    }
    return dropped;
  }

  // The records kept, as one stream.
  std::unique_ptr<Stream> kept() {
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
  std::uint8_t* record(std::uint64_t i) { return bytes_.data() + i * record_bytes_; }

  std::optional<std::uint64_t> nextKept(std::uint64_t i) const {
    for (std::uint64_t j = i + 1; j < count_; ++j) {
      if (keep_[j]) return j;
    }
    return std::nullopt;
  }

  void noteDrop(std::uint64_t i) {
    dropped_in_.resize(segments());
    const auto segment = static_cast<std::size_t>(
        std::upper_bound(segment_start_.begin(), segment_start_.end(), i) - segment_start_.begin() - 1);
    ++dropped_in_[std::min(segment, segments() - 1)];
  }

  // The distance between the logger's offsets and the output's in one segment: the guess, from
  // the first references and values, under which most of the first references land on a value.
  std::optional<std::uint64_t> learnShift(const BitField& field, const ValueIndex& values, std::size_t segment,
                                          std::optional<std::uint64_t> before) {
    std::vector<std::uint64_t> references;
    for (std::uint64_t i = segment_start_[segment]; i < segment_start_[segment + 1] && references.size() < kChecks; ++i) {
      if (keep_[i]) references.push_back(field.read(record(i)));
    }
    const std::vector<std::uint64_t> starts = values.firstOf(segment, kAnchorValues);
    std::optional<std::uint64_t> best;
    std::size_t best_score = 0;
    for (std::size_t a = 0; a < references.size() && a < kAnchors; ++a) {
      for (std::uint64_t start : starts) {
        // Values are only ever lost, so offsets move back, never forward, and never less than before.
        if (references[a] < start || (before && references[a] - start < *before)) continue;
        const std::uint64_t shift = references[a] - start;
        std::size_t score = 0;
        for (std::uint64_t reference : references) {
          score += reference >= shift && values.startsValue(reference - shift, segment);
        }
        if (score > best_score) {
          best_score = score;
          best = shift;
        }
      }
    }
    if (best_score * 2 <= references.size()) return std::nullopt;
    return best;
  }

  std::vector<std::uint8_t> bytes_;
  std::uint64_t record_bytes_;
  std::uint64_t count_;
  std::vector<std::uint8_t> keep_;
  std::vector<std::uint64_t> segment_start_;  // record index where each segment begins; count at the end
  std::vector<std::uint64_t> dropped_in_;
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
  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    if (channel_group == nullptr || (channel_group->flags & kChannelGroupVlsd) || channel_group->data_bytes == 0) {
      continue;
    }
    const std::uint64_t record_id = channel_group->record_id;
    const MasterValue master = masterValueOf(*channel_group);
    const std::vector<Reference> references = referencesOf(group, *channel_group);
    if ((!master.present && references.empty()) || !table.contains(record_id)) continue;

    std::unique_ptr<Stream> stream = takeStream(table, record_id);
    std::vector<std::uint8_t> bytes;
    if (!readAll(*stream, bytes)) {
      putBack(table, record_id, std::move(stream));
      continue;
    }
    stream.reset();
    GroupRepair repair(std::move(bytes), channel_group->data_bytes, salvaged, record_id);
    const std::uint64_t record_bytes = group.record_id_size + channel_group->data_bytes;
    if (master.present) {
      noteDrops(report, LossReason::kRecordOutOfTime, record_id, repair.dropOutOfTime(master), record_bytes);
    }
    for (const Reference& reference : references) {
      std::unique_ptr<Stream> values = takeStream(table, reference.values_id);
      ValueIndex index;
      const bool indexed = indexValues(*values, salvaged, reference.values_id, index);
      putBack(table, reference.values_id, std::move(values));
      if (!indexed) continue;
      noteDrops(report, LossReason::kSignalValueLost, reference.values_id, repair.remap(reference.field, index),
                record_bytes);
    }
    const std::vector<std::uint64_t>& dropped = repair.droppedPerSegment();
    for (std::size_t segment = 1; segment < dropped.size(); ++segment) {
      std::uint64_t& after = salvaged[segment - 1].stretch.records_after;
      after -= std::min(after, dropped[segment]);
    }
    putBack(table, record_id, repair.kept());
  }
}

}  // namespace qm
