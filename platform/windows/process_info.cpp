#include "platform/process_info.h"

#include <windows.h>

namespace qm {

LocalTime localTimeNow() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return LocalTime{now.wYear, now.wMonth,  now.wDay,         now.wHour,
                   now.wMinute, now.wSecond, now.wMilliseconds};
}

long long processId() { return GetCurrentProcessId(); }

// The system's id of the thread, which Task Manager and Process Explorer show.
long long threadId() { return GetCurrentThreadId(); }

}  // namespace qm
