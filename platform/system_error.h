#pragma once
// The operating system's own error numbers, as the platform calls leave them, and their text.
// Every platform function that fails says so in its result and leaves its reason here, so that
// the layers above can carry it up to the one line that reports the failure.

namespace qm {

// The reason of the last failed platform call on this thread (0 when none is known).
int lastSystemError();
void setLastSystemError(int error);

// The system's own words for an error number ("No such file or directory").
const char* systemErrorText(int error);

// Error numbers the layers above name themselves.
int systemErrorIsADirectory();
int systemErrorExists();
int systemErrorInvalidArgument();
int systemErrorInputOutput();

}  // namespace qm
