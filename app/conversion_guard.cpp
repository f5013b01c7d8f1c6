#include "app/conversion_guard.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "base/log.h"
#include "stream/directory_handle.h"

namespace qm {
namespace {

// Paths are copied into fixed buffers beforehand: the handler may use no allocation.
constexpr std::size_t kPathCapacity = 4096;

struct GuardState {
  volatile sig_atomic_t active = 0;
  char input[kPathCapacity] = {};
  int input_length = 0;
  char output[kPathCapacity] = {};  // empty when no output is open
};

GuardState g_state;

void copyPath(char* target, std::string_view path) {
  std::size_t n = std::min(path.size(), kPathCapacity - 1);
  std::memcpy(target, path.data(), n);
  target[n] = '\0';
}

extern "C" void onBusError(int signal_number) {
  if (!g_state.active) {
    // Not ours: die of it as the program would have without the guard.
    ::signal(signal_number, SIG_DFL);
    ::raise(signal_number);
    return;
  }
  if (g_state.output[0] != '\0') ::unlink(g_state.output);
  // The fault comes from this thread's own read of the mapping, never from inside the
  // logger, so the logger's formatting is safe to use here.
  QM_LOG_E("Input file changed during conversion: %.*s", g_state.input_length, g_state.input);
  QM_LOG_E("Error during conversion of %.*s", g_state.input_length, g_state.input);
  ::_exit(1);
}

void installHandlerOnce() {
  static bool installed = false;
  if (installed) return;
  struct sigaction action {};
  action.sa_handler = onBusError;
  sigemptyset(&action.sa_mask);
  installed = ::sigaction(SIGBUS, &action, nullptr) == 0;
}

}  // namespace

ConversionGuard::ConversionGuard(std::string_view input_path) {
  installHandlerOnce();
  copyPath(g_state.input, input_path);
  g_state.input_length = static_cast<int>(std::strlen(g_state.input));
  g_state.output[0] = '\0';
  g_state.active = 1;
}

ConversionGuard::~ConversionGuard() {
  g_state.active = 0;
  g_state.output[0] = '\0';
}

void ConversionGuard::setOutput(const DirectoryHandle* root, std::string_view relative) {
  if (root == nullptr) {
    g_state.output[0] = '\0';
    return;
  }
  copyPath(g_state.output, root->join(relative).view());
}

}  // namespace qm
