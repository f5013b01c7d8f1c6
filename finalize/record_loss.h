#pragma once
// What a finalization had to leave out of its output: complete records it could not place.
// A logger cut off in the middle of a record leaves a torn last record; that is the normal end
// of an unfinalized file and no loss.
#include <cstdint>
#include <vector>

#include "base/small_string.h"

namespace qm {

enum class LossReason {
  kUnknownRecordId,          // no channel group has the id: this record and all behind it
  kRecordPastEnd,            // a variable-length record longer than what is left of the data
  kEmptyRecord,              // a record of no bytes would never move the scan on
  kUnreferencedSignalGroup,  // a variable-length group no channel refers to, and the groups behind it
};

struct RecordLoss {
  LossReason reason = LossReason::kUnknownRecordId;
  std::uint64_t offset = 0;   // where the dropped bytes start in the unwrapped file
  std::uint64_t bytes = 0;    // of records as they lay in the input, record ids included
  std::uint64_t records = 0;  // 0 when not known
  std::uint64_t record_id = 0;  // the unknown id, or the first dropped group's
  std::uint64_t length = 0;     // a record past the end: the length it claims
};

struct LossReport {
  std::vector<RecordLoss> losses;

  bool any() const { return !losses.empty(); }
  std::uint64_t bytes() const;
  std::uint64_t records() const;
};

// "1234 bytes dropped from offset 5678: record id 255 is not known", and the totals when there
// were several losses.
SmallString describeLosses(const LossReport& report);

}  // namespace qm
