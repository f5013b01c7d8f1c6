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

// The processors this process may run on (its affinity mask, which `taskset` or a container
// may narrow), and no more than a container's processor-time quota keeps busy; at least 1.
unsigned usableProcessors();

// True while fewer conversions run than there are usable processors.
bool processorToSpare();

}  // namespace qm
