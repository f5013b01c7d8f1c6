#include "finalize/record_salvage.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"

namespace qm {

namespace {

constexpr std::uint64_t kVlsdLengthPrefix = 4;
constexpr unsigned kShortestRun = 8;
constexpr unsigned kLongestRun = 32;

// How many records in a row must parse before a place counts as records again. A byte of
// damage is read as a record id the data group knows with probability p = ids / 2^(8 * id size)
// (a logger's 4 ids of 256: 1/64), and a run of random records then needs that K times; the
// lengths fitting and the times not going back only make it rarer. K is chosen so that
// p^K <= 2^-48: at 1/64, K = 8, and a terabyte of random damage (2^40 places to try) is taken
// for records with odds of 1 in 256. Groups whose ids say little (no ids at all, or most of
// the possible ones in use) get up to 32, where the master times carry the check.
unsigned runLengthFor(const DataGroupBlock& group) {
  const double id_bits = 8.0 * group.record_id_size;
  const double known = std::max<double>(1.0, group.record_layouts.size());
  const double bits_per_record = id_bits - std::log2(known);
  if (bits_per_record <= 48.0 / kLongestRun) return kLongestRun;
  return std::clamp(static_cast<unsigned>(std::ceil(48.0 / bits_per_record)), kShortestRun, kLongestRun);
}

}  // namespace

MasterValue masterValueOf(const ChannelGroupBlock& group) {
  constexpr std::uint8_t kMasterChannel = 2;
  for (const BlockRef& block : group.channels) {
    const ChannelBlock* channel = blockAs<ChannelBlock>(block);
    if (channel == nullptr || channel->channel_type != kMasterChannel) continue;
    MasterValue master;
    master.bit_position = static_cast<std::uint64_t>(channel->byte_offset) * 8 + channel->bit_offset;
    master.bit_count = channel->bit_count;
    // One that does not lie inside the record cannot be compared.
    const std::uint64_t record_bits = static_cast<std::uint64_t>(group.data_bytes) * 8;
    if (master.bit_position > record_bits || master.bit_count > record_bits - master.bit_position) return master;
    if (channel->value_class == kValueUnsignedLittleEndian) {
      master.present = channel->bit_count >= 1 && channel->bit_count <= 64;
    } else if (channel->value_class == kValueFloatLittleEndian) {
      master.is_float = true;
      master.present = channel->bit_count == 32 || channel->bit_count == 64;
    }
    return master;
  }
  return MasterValue{};
}

std::optional<std::uint64_t> masterKey(const MasterValue& master, const std::uint8_t* payload, std::uint64_t size) {
  const std::uint64_t first = master.bit_position / 8;
  const unsigned shift = static_cast<unsigned>(master.bit_position % 8);
  const std::uint64_t bytes = (shift + master.bit_count + 7) / 8;  // at most 9
  if (!master.present || first > size || bytes > size - first) return std::nullopt;
  unsigned __int128 wide = 0;
  for (std::uint64_t i = bytes; i > 0; --i) wide = (wide << 8) | payload[first + i - 1];
  std::uint64_t raw = static_cast<std::uint64_t>(wide >> shift);
  if (master.bit_count < 64) raw &= (std::uint64_t{1} << master.bit_count) - 1;
  if (!master.is_float) return raw;
  double value = 0.0;
  if (master.bit_count == 32) {
    value = std::bit_cast<float>(static_cast<std::uint32_t>(raw));
  } else {
    value = std::bit_cast<double>(raw);
  }
  if (std::isnan(value)) return std::nullopt;
  // Negative floats order backwards by their bits: flipping them all (and the sign bit of the
  // others) gives keys that order like the values.
  std::uint64_t bits = std::bit_cast<std::uint64_t>(value == 0.0 ? 0.0 : value);
  return (bits >> 63) ? ~bits : bits | (std::uint64_t{1} << 63);
}

SalvageSearch::SalvageSearch(const DataGroupBlock& group)
    : id_size_(group.record_id_size), lookup_(group), run_length_(runLengthFor(group)) {
  std::fill(std::begin(direct_), std::end(direct_), -1);
  for (const BlockRef& block : group.channel_groups) {
    const ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(block);
    if (channel_group == nullptr) continue;
    // Records of a group without ids are read with id 0 and belong to its first channel group.
    const std::uint64_t id = id_size_ == 0 ? 0 : channel_group->record_id;
    if (index_.contains(id)) continue;
    const auto slot = static_cast<std::uint32_t>(states_.size());
    states_.push_back(GroupState{masterValueOf(*channel_group)});
    index_.insert(id, slot);
    if (id < kDirect) direct_[id] = static_cast<std::int32_t>(slot);
  }
}

SalvageSearch::GroupState* SalvageSearch::stateOf(std::uint64_t record_id) {
  if (record_id < kDirect) return direct_[record_id] < 0 ? nullptr : &states_[static_cast<std::size_t>(direct_[record_id])];
  const std::uint32_t* slot = index_.find(record_id);
  return slot ? &states_[*slot] : nullptr;
}

void SalvageSearch::take(std::uint64_t record_id, const std::uint8_t* payload, std::uint64_t size) {
  last_taken_ = record_id;
  if (lead_.size() < kLeadRecords) lead_.push_back(record_id);
  GroupState* state = stateOf(record_id);
  if (state == nullptr || !state->master.present) return;
  std::optional<std::uint64_t> key = masterKey(state->master, payload, size);
  if (!key) return;
  state->floor = state->taken > 0 ? state->last : 0;
  state->last = *key;
  if (state->taken < 2) ++state->taken;
}

bool SalvageSearch::acceptsRun(const std::uint8_t* bytes, std::uint64_t left) {
  return judgeRun(bytes, left, left) == kAccepted;
}

SalvageSearch::Verdict SalvageSearch::judgeRun(const std::uint8_t* bytes, std::uint64_t left, std::uint64_t readable) {
  const std::uint64_t visible = std::min(left, kSalvageWindow);
  readable = std::min(readable, visible);
  // Whether the first `end` bytes of the run may be looked at: not beyond what the verdict
  // depends on, and only once they are there.
  enum Reach { kBeyond, kThere, kNotYet };
  auto reach = [&](std::uint64_t end) { return end > visible ? kBeyond : end > readable ? kNotYet : kThere; };
  struct Seen {
    const GroupState* state;
    std::uint64_t key;
  };
  Seen seen[kLongestRun];
  unsigned seen_count = 0;
  std::uint64_t at = 0;
  for (unsigned n = 0; n < run_length_; ++n) {
    if (at == left) return kAccepted;  // the run ends with the data
    const std::uint64_t rest = left - at;
    if (reach(at + kBytesToTellABlock) == kNotYet) return kNeedMore;
    if (reach(at + kBytesToTellABlock) == kThere && startsBlock(bytes + at, rest)) return kAccepted;
    if (rest < id_size_) return kAccepted;  // a torn last record id
    if (reach(at + id_size_) != kThere) return reach(at + id_size_) == kBeyond ? kRejected : kNeedMore;
    const std::uint64_t record_id = id_size_ > 0 ? littleEndianValue(bytes + at, id_size_) : 0;
    const std::int64_t length = lookup_.payloadLength(record_id);
    if (length == RecordLayoutLookup::kNoLayout) return kRejected;
    std::uint64_t payload_size = static_cast<std::uint64_t>(length);
    if (length == RecordLayoutLookup::kVariable) {
      if (rest - id_size_ < kVlsdLengthPrefix) return kAccepted;  // a torn length
      const Reach prefix = reach(at + id_size_ + kVlsdLengthPrefix);
      if (prefix != kThere) return prefix == kBeyond ? kRejected : kNeedMore;
      payload_size = kVlsdLengthPrefix + littleEndianValue(bytes + at + id_size_, kVlsdLengthPrefix);
    }
    const std::uint64_t total = id_size_ + payload_size;
    if (total == 0) return kRejected;
    if (total > rest) {
      // A torn last record; a variable-length claim no logger writes is damage instead.
      return length != RecordLayoutLookup::kVariable || total <= kLargestTornRecord ? kAccepted : kRejected;
    }
    if (reach(at + total) != kThere) return reach(at + total) == kBeyond ? kRejected : kNeedMore;
    const GroupState* state = stateOf(record_id);
    if (state != nullptr && state->master.present) {
      std::optional<std::uint64_t> key = masterKey(state->master, bytes + at + id_size_, payload_size);
      if (!key) return kRejected;
      Seen* earlier = std::find_if(seen, seen + seen_count, [&](const Seen& s) { return s.state == state; });
      if (earlier != seen + seen_count) {
        if (*key < earlier->key) return kRejected;
        earlier->key = *key;
      } else {
        if (*key < state->floor) return kRejected;
        seen[seen_count++] = {state, *key};
      }
    }
    at += total;
  }
  return kAccepted;
}

std::optional<std::uint64_t> SalvageSearch::find(const std::uint8_t* bytes, std::uint64_t from, std::uint64_t to,
                                                 std::uint64_t end) {
  for (std::uint64_t at = from; at <= to && at <= end; ++at) {
    if (acceptsRun(bytes + at, end - at)) return at;
  }
  return std::nullopt;
}

}  // namespace qm
