#pragma once
// Conversions that run at the same time share the processors. A conversion may start helper
// threads of its own (reading ahead, faulting in pages, scanning in two lanes), but only while
// some processor is left over: once every processor runs a conversion of its own, a helper no
// longer overlaps anything and only adds work (switching threads, fresh stacks, more memory).
namespace qm {

// Counts its conversion as running for as long as it lives.
class RunningConversion {
 public:
  RunningConversion();
  ~RunningConversion();
  RunningConversion(const RunningConversion&) = delete;
  RunningConversion& operator=(const RunningConversion&) = delete;
};

// True while fewer conversions run than there are processors.
bool processorToSpare();

}  // namespace qm
