#include "finalize/record_loss.h"

namespace qm {
namespace {

using ull = unsigned long long;

SmallString reasonOf(const RecordLoss& loss) {
  switch (loss.reason) {
    case LossReason::kUnknownRecordId:
      return SmallString::format("record id %llu is not known", static_cast<ull>(loss.record_id));
    case LossReason::kRecordPastEnd:
      return SmallString::format("a record of id %llu claims %llu bytes, more than the data holds",
                                 static_cast<ull>(loss.record_id), static_cast<ull>(loss.length));
    case LossReason::kEmptyRecord:
      return SmallString("records of no bytes cannot be told apart");
    case LossReason::kUnreferencedSignalGroup:
      return SmallString::format("no channel refers to the variable-length group of record id %llu",
                                 static_cast<ull>(loss.record_id));
    case LossReason::kSignalValueLost:
      return SmallString::format("their variable-length values in the group of record id %llu were damaged",
                                 static_cast<ull>(loss.record_id));
    case LossReason::kRecordOutOfTime:
      return SmallString::format("records of id %llu in damaged data break the order of their times",
                                 static_cast<ull>(loss.record_id));
    case LossReason::kRecordBeforeDamage:
      return SmallString::format("records of id %llu right before damaged data may hold some of it",
                                 static_cast<ull>(loss.record_id));
    case LossReason::kUnnamedSignalValue:
      return SmallString::format("no recovered record names these variable-length values of record id %llu",
                                 static_cast<ull>(loss.record_id));
  }
  return SmallString();
}

SmallString amountOf(std::uint64_t bytes, std::uint64_t records) {
  if (records == 0) return SmallString::format("%llu bytes", static_cast<ull>(bytes));
  return SmallString::format("%llu records (%llu bytes)", static_cast<ull>(records), static_cast<ull>(bytes));
}

}  // namespace

std::uint64_t LossReport::bytes() const {
  std::uint64_t total = 0;
  for (const RecordLoss& loss : losses) total += loss.bytes;
  return total;
}

std::uint64_t LossReport::records() const {
  std::uint64_t total = 0;
  for (const RecordLoss& loss : losses) total += loss.records;
  return total;
}

SmallString describeLosses(const LossReport& report) {
  if (!report.any()) return SmallString();
  const RecordLoss& first = report.losses.front();
  SmallString text = amountOf(first.bytes, first.records);
  if (first.reason == LossReason::kUnreferencedSignalGroup || first.reason == LossReason::kSignalValueLost ||
      first.reason == LossReason::kRecordOutOfTime || first.reason == LossReason::kUnnamedSignalValue ||
      first.reason == LossReason::kRecordBeforeDamage) {
    text.append(" dropped: ");
  } else {
    text.append(SmallString::format(" dropped from offset %llu: ", static_cast<ull>(first.offset)).view());
  }
  text.append(reasonOf(first).view());
  if (report.losses.size() > 1) {
    text.append(SmallString::format("; %zu losses, ", report.losses.size()).view());
    // A total of records means something only when every loss knows its own.
    bool records_known = true;
    for (const RecordLoss& loss : report.losses) records_known = records_known && loss.records > 0;
    text.append(amountOf(report.bytes(), records_known ? report.records() : 0).view());
    text.append(" in all");
  }
  return text;
}

}  // namespace qm
