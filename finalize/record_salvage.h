#pragma once
// Salvaging the records of an unsorted data block behind a damaged stretch: from a record the
// scan could not take, the search walks forward byte by byte to the first place where a run of
// records parses cleanly again, and the scan goes on from there.
#include <cstdint>
#include <optional>
#include <vector>

#include "base/hash_map.h"
#include "finalize/record_reader.h"

namespace qm {

class ChannelGroupBlock;
class DataGroupBlock;

// A run of records is looked at only within this many bytes from its start: the search then
// needs no more than this in view, in memory or read from a stream, and gives the same verdict
// either way. Loggers' runs take a few hundred bytes.
inline constexpr std::uint64_t kSalvageWindow = 1 << 20;

// Where a channel group's master value lies in its records: unsigned little-endian integers of
// up to 64 bits, and little-endian floats of 32 or 64 bits. Others are not compared.
struct MasterValue {
  std::uint64_t bit_position = 0;
  std::uint32_t bit_count = 0;
  bool is_float = false;
  bool present = false;
};

// The master channel (channel type 2) of the group, when it is one of the kinds above and lies
// inside the group's records.
MasterValue masterValueOf(const ChannelGroupBlock& group);

// The master value of a payload as a key that orders like the value; none when the payload is
// too short for it or the value is not a number.
std::optional<std::uint64_t> masterKey(const MasterValue& master, const std::uint8_t* payload, std::uint64_t size);

class SalvageSearch {
 public:
  explicit SalvageSearch(const DataGroupBlock& group);

  // How many records in a row must parse before a place is taken for records again.
  unsigned runLength() const { return run_length_; }

  // Whether records start again at `bytes` (`left` of them to the end of the data, of which at
  // least min(left, kSalvageWindow) are readable): a run of runLength() records with known ids,
  // lengths inside the data, and master values that never go back within their channel group,
  // or a shorter run that ends exactly at the end of the data, at a torn last record or at the
  // blocks a stretched last data block covers. Costs at most runLength() record parses.
  bool acceptsRun(const std::uint8_t* bytes, std::uint64_t left);

  // The same when only the first `readable` bytes are there yet: kNeedMore when the verdict
  // depends on more of them (never more than min(left, kSalvageWindow)).
  enum Verdict { kRejected, kAccepted, kNeedMore };
  Verdict judgeRun(const std::uint8_t* bytes, std::uint64_t left, std::uint64_t readable);

  // Notes a record the scan took, so that later runs are compared with its master value.
  void take(std::uint64_t record_id, const std::uint8_t* payload, std::uint64_t size);
  // The id of the last record taken, if any.
  std::optional<std::uint64_t> lastTaken() const { return last_taken_; }
  // The ids of the first records taken since the last call, in order (at most kLeadRecords):
  // how a segment's records interleave, which pairs frames with their values.
  static constexpr std::size_t kLeadRecords = 64;
  std::vector<std::uint64_t> takeLead() { return std::move(lead_); }

  // The first place in [from, to] of `bytes` (`end` of them to the end of the data, all
  // readable) where acceptsRun says yes.
  std::optional<std::uint64_t> find(const std::uint8_t* bytes, std::uint64_t from, std::uint64_t to,
                                    std::uint64_t end);

 private:
  struct GroupState {
    MasterValue master;
    // The master of the record before the last one taken: a run is compared with it, so that a
    // single record of damaged bytes just before a stop cannot shut out the true ones after it.
    std::uint64_t floor = 0;
    std::uint64_t last = 0;
    std::uint32_t taken = 0;  // up to 2
  };
  GroupState* stateOf(std::uint64_t record_id);

  std::size_t id_size_;
  RecordLayoutLookup lookup_;
  std::optional<std::uint64_t> last_taken_;
  std::vector<std::uint64_t> lead_;
  unsigned run_length_ = 0;
  std::vector<GroupState> states_;
  HashMap<std::uint64_t, std::uint32_t> index_;  // record id -> states_
  static constexpr std::uint64_t kDirect = 256;
  std::int32_t direct_[kDirect];  // the small ids loggers use, -1 for none
};

}  // namespace qm
