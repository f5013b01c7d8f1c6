#pragma once
// Standard error, the terminal it may be, and writing to it directly (the log and the progress
// display write there without a stream in between).
#include <cstddef>
#include <cstdint>

namespace qm {

// An output as the system names it: a file descriptor on POSIX systems, a HANDLE on Windows.
// Only platform/ looks inside.
struct OutputHandle {
  std::intptr_t value;
};

OutputHandle standardErrorHandle();

// A person may be watching: the output is a terminal. On Windows a console, which this asks to
// take a terminal's control sequences; one too old to take them counts as none.
bool isTerminal(OutputHandle output);

// Columns of the terminal on `output`; 0 when it is no terminal or does not say.
int terminalColumns(OutputHandle output);

// The bytes are UTF-8; a Windows console shows them as the characters they stand for, while a
// file or a pipe gets them unchanged.

// Writes the bytes with a single call of the system, so that lines written at the same time by
// several threads, or by several programs sharing the output, never mix. The count written, or
// -1 on failure (reason in lastSystemError()).
std::ptrdiff_t writeOnce(OutputHandle output, const void* data, std::size_t size);

// Writes all the bytes, in as many calls as the system needs. False when the output takes no
// more (reason in lastSystemError() when the system gave one).
bool writeAll(OutputHandle output, const void* data, std::size_t size);

}  // namespace qm
