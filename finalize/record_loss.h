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
  kSignalValueLost,          // recovered records whose variable-length value lay in a damaged stretch
  kRecordOutOfTime,          // records of a salvaged group whose time breaks the group's order
  kUnnamedSignalValue,       // variable-length values of a salvaged group no recovered record names
  kRecordBeforeDamage,       // the record right before a damaged stretch, which the damage may reach into
};

struct RecordLoss {
  LossReason reason = LossReason::kUnknownRecordId;
  std::uint64_t offset = 0;   // where the dropped bytes start in the unwrapped file
  std::uint64_t bytes = 0;    // of records as they lay in the input, record ids included
  std::uint64_t records = 0;  // 0 when not known
  std::uint64_t record_id = 0;  // the unknown id, or the first dropped group's
  std::uint64_t length = 0;     // a record past the end: the length it claims
};

// A damaged stretch of records that salvaging skipped; the scan went on behind it.
struct SkippedStretch {
  std::uint64_t offset = 0;         // in the unwrapped file
  std::uint64_t bytes = 0;
  std::uint64_t records_after = 0;  // recovered up to the next stretch or the end of the data
};

struct LossReport {
  std::vector<RecordLoss> losses;  // skipped stretches are losses too
  std::vector<SkippedStretch> skipped;

  bool any() const { return !losses.empty(); }
  std::uint64_t bytes() const;
  std::uint64_t records() const;
};

// "1234 bytes dropped from offset 5678: record id 255 is not known", and the totals when there
// were several losses.
SmallString describeLosses(const LossReport& report);

}  // namespace qm
