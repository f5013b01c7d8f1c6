#pragma once
// What a run is about to convert, counted before the walk so that progress can be measured
// against it. Only done when progress is shown.
#include <cstdint>
#include <vector>

#include "app/converter_job.h"

namespace qm {

struct InputTotals {
  std::int64_t files = 0;
  std::uint64_t bytes = 0;
};

// Goes where the walk will go (the inputs in order, folders recursively) and counts the files
// that the walk will convert, asking the walk's own decision. Logs nothing, creates nothing.
InputTotals countInputs(const ConverterJob& job, const std::vector<SmallString>& inputs);

}  // namespace qm
