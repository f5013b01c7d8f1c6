#include "platform/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace qm {
namespace {

int descriptor(OutputHandle output) { return static_cast<int>(output.value); }

}  // namespace

OutputHandle standardErrorHandle() { return OutputHandle{STDERR_FILENO}; }

bool isTerminal(OutputHandle output) { return ::isatty(descriptor(output)) == 1; }

int terminalColumns(OutputHandle output) {
  winsize size{};
  if (::ioctl(descriptor(output), TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

std::ptrdiff_t writeOnce(OutputHandle output, const void* data, std::size_t size) {
  return ::write(descriptor(output), data, size);
}

bool writeAll(OutputHandle output, const void* data, std::size_t size) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t written = ::write(descriptor(output), bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace qm
