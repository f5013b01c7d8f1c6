#include "platform/lost_pages.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>

namespace qm {
namespace {

// Read inside the fault, where asking the system for the page size is not safe.
std::uintptr_t g_page_size = 4096;
std::atomic<LostPagesHandler> g_handler{nullptr};

extern "C" void onBusError(int signal_number, siginfo_t* info, void*) {
  LostPagesHandler handler = g_handler.load(std::memory_order_acquire);
  if (handler != nullptr && handler(reinterpret_cast<std::uintptr_t>(info->si_addr))) return;
  // Not a lost page the handler took care of: die of it as without the handler.
  ::signal(signal_number, SIG_DFL);
}

}  // namespace

void handleLostPages(LostPagesHandler handler) {
  long page_size = ::sysconf(_SC_PAGESIZE);
  if (page_size > 0) g_page_size = static_cast<std::uintptr_t>(page_size);
  g_handler.store(handler, std::memory_order_release);
  struct sigaction action {};
  action.sa_sigaction = onBusError;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGBUS, &action, nullptr);
}

bool replaceLostPages(std::uintptr_t address, std::uintptr_t end) {
  std::uintptr_t page = address & ~(g_page_size - 1);
  std::uintptr_t length = ((end - page) + g_page_size - 1) & ~(g_page_size - 1);
  void* replaced =
      mmap(reinterpret_cast<void*>(page), length, PROT_READ, MAP_FIXED | MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return replaced != MAP_FAILED;
}

}  // namespace qm
