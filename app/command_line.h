#pragma once
#include "app/run_context.h"

namespace qm {

// Exit statuses of the command line.
enum ExitStatus : int {
  kExitOk = 0,
  kExitInputFailed = 1,
  kExitParseFailed = 128,
  kExitNoMemory = 129,
  kExitMissingValue = 130,
  kExitBadOption = 131,
  kExitUsageError = 134,
};

// Parses the arguments into the context, prints usage, version or parse errors, loads the
// password file and opens the directories. True when inputs are to be converted; the outcome
// otherwise is in *exit_status.
bool parseCommandLine(RunContext& context, int argc, char** argv, int* exit_status);

// Log threshold for a verbosity value, or -1 when the value is not accepted.
int thresholdForVerbosity(int verbosity);

}  // namespace qm
