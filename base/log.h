#pragma once
// The program's one logging facility: one line per message on standard error,
// filtered by a global threshold that each call site tests before formatting.
#include <cstddef>
#include <cstdint>

#include "base/printf_format.h"

namespace qm {

enum LogLevel : int {
  kLogVerbose = 1,
  kLogDebug = 2,
  kLogInfo = 3,
  kLogWarning = 4,
  kLogError = 5,
  kLogFatal = 6,
};

// Parts of a line that are produced (a bit mask).
enum LogMask : unsigned {
  kLogContext = 1,
  kLogTag = 2,
  kLogLocation = 4,
  kLogMessage = 8,
};

// A line under construction: a fixed buffer on the stack, never the heap.
struct LogLine {
  static constexpr std::size_t kBufferSize = 512;
  static constexpr std::size_t kContentLimit = 510;  // room left for the newline
  char buffer[kBufferSize];
  char* start;
  char* end;
  char* pos;
};

using LogOutput = void (*)(void* arg, LogLine& line);

int logThreshold();
void setLogThreshold(int threshold);
// Replaces where lines go (tests capture them this way); a null callback restores standard error.
void setLogOutput(unsigned mask, void* arg, LogOutput output);
// Writes the finished line plus a newline to standard error with one write call.
void writeLineToStderr(void* arg, LogLine& line);

char logLevelLetter(int level);
void logWrite(int level, const char* tag, const char* format, ...) QM_PRINTF_FORMAT(3, 4);
// Hexadecimal dump of a byte range, 32 bytes per line, one output call per line.
void logDump(int level, const void* data, std::size_t size);

}  // namespace qm

#define QM_LOG(level, ...)                                \
  do {                                                    \
    if (::qm::logThreshold() <= (level)) {                \
      ::qm::logWrite((level), nullptr, __VA_ARGS__);      \
    }                                                     \
  } while (0)

#define QM_LOG_V(...) QM_LOG(::qm::kLogVerbose, __VA_ARGS__)
#define QM_LOG_D(...) QM_LOG(::qm::kLogDebug, __VA_ARGS__)
#define QM_LOG_I(...) QM_LOG(::qm::kLogInfo, __VA_ARGS__)
#define QM_LOG_W(...) QM_LOG(::qm::kLogWarning, __VA_ARGS__)
#define QM_LOG_E(...) QM_LOG(::qm::kLogError, __VA_ARGS__)
#define QM_LOG_F(...) QM_LOG(::qm::kLogFatal, __VA_ARGS__)
