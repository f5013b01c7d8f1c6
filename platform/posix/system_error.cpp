#include "platform/system_error.h"

#include <cerrno>
#include <cstring>

namespace qm {

int lastSystemError() { return errno; }

void setLastSystemError(int error) { errno = error; }

const char* systemErrorText(int error) {
  // strerror's buffer is shared between threads; each thread keeps its own copy here.
  thread_local char text[128];
  const char* message = strerror_r(error, text, sizeof text);  // the GNU form returns the text
  return message;
}

int systemErrorIsADirectory() { return EISDIR; }
int systemErrorExists() { return EEXIST; }
int systemErrorInvalidArgument() { return EINVAL; }
int systemErrorInputOutput() { return EIO; }

}  // namespace qm
