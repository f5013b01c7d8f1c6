#pragma once
// Outputs still being written when the run is told to stop (Ctrl-C, a batch system's time limit,
// a closed terminal, the reader of its log that went away) are removed before the program ends.
// Without this, every conversion running at that moment would leave its temporary file behind.
// The program still ends of the stop request itself, so the exit status and standard error stay
// as they were; only the temporary files go. A kill -9 or a crash may still leave one, which the
// next run replaces.
#include <string_view>

#include "base/small_string.h"
#include "platform/stop_requests.h"

namespace qm {

// A temporary output from the moment it is created until it gets its final name or is removed.
// Its slot holds a pointer to the path, so it neither moves nor copies.
class PendingOutput {
 public:
  // The path as the system's file calls take it.
  explicit PendingOutput(std::string_view path) : path_(path) {}
  ~PendingOutput() { forget(); }
  PendingOutput(const PendingOutput&) = delete;
  PendingOutput& operator=(const PendingOutput&) = delete;

  const SmallString& path() const { return path_; }

  // Runs `create_file`, which creates the file at the path and says whether it did. A stop
  // request either finds the file noted for removal or ends the program before the file exists;
  // it is held back on this thread meanwhile, so that its handler can wait for the creation.
  template <typename CreateFile>
  bool create(CreateFile&& create_file) {
    StopRequestsHeldBack held_back;
    beginCreating();
    bool created = create_file();
    finishCreating(created);
    return created;
  }

  // The file is about to get its final name, or is gone: a stop request leaves it alone from now
  // on. Should a stop request be removing it at this very moment, this never returns: the
  // program is ending, and the path must stay valid until it has.
  void forget();

 private:
  void beginCreating();
  void finishCreating(bool created);

  SmallString path_;
  int slot_ = -1;  // -1 when not noted (no slot was free: the file is then left as by a kill -9)
};

// Removes the pending outputs on a stop request, then ends the program of that request. A request
// the program was started ignoring (nohup, a background job of a shell without job control) stays
// ignored.
void removePendingOutputsOnStopRequests();

}  // namespace qm
