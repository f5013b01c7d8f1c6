#pragma once
// Requests from outside to stop the run: Ctrl-C, a batch system's time limit, a closed terminal,
// a reader of the program's output that went away (SIGINT, SIGTERM, SIGHUP and SIGPIPE on POSIX
// systems; the console's control events on Windows). The program still ends of such a request
// exactly as it would without this layer, same exit status and nothing printed; one handler may
// first clean up after itself.

namespace qm {

// Runs when a stop request arrives; once it returns, the program ends of that request. It may
// interrupt any thread at any point (on POSIX systems it is a signal handler), so it must take
// no lock, allocate no memory and log nothing: lock-free atomics and the functions below that
// say they are safe in a stop handler are all it may use. Another request that reaches the
// same thread waits until the handler has returned.
using StopHandler = void (*)();

// Makes `handler` the program's one stop handler, for every stop request the program was not
// started ignoring: one it was (under nohup, in a background job of a script) stays ignored.
// False when the system refused a request (reason in lastSystemError()); the others are set.
bool handleStopRequests(StopHandler handler);

// While one lives, the stop handler does not interrupt this thread: a request that arrives
// meanwhile is handled on another thread, or on this one once the outermost hold ends. Lets a
// thread finish a step (creating a file) that the handler must see either not begun or done.
class StopRequestsHeldBack {
 public:
  StopRequestsHeldBack();
  ~StopRequestsHeldBack();
  StopRequestsHeldBack(const StopRequestsHeldBack&) = delete;
  StopRequestsHeldBack& operator=(const StopRequestsHeldBack&) = delete;

 private:
  unsigned already_held_;  // the requests held back before this one began, one bit each
};

// Removes the file at `path`. Safe in a stop handler. False when it could not (reason in
// lastSystemError()).
bool removeFileWhileStopping(const char* path);

// Waits `microseconds`, for another thread to finish a step. Safe in a stop handler.
void pauseWhileStopping(long microseconds);

// For a thread that found a stop request being handled: waits for it to end the program.
[[noreturn]] void waitForStopToEndProgram();

// A write that would cross the file-size limit the process was given fails ("File too large")
// instead of ending the program, so that only the conversion writing it fails.
void failWritesPastFileSizeLimit();

}  // namespace qm
