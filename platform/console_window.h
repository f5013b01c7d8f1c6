#pragma once
// A console window of the program's own, which closes with it: on Windows, a console program
// started from the Explorer (a double click, files dropped on it) gets one, and the person would
// not see its last lines before it is gone.

namespace qm {

// The program runs alone in a console window that a person reads and types into: it is the one
// program attached to the console, and its standard input is that console. Never on POSIX
// systems, whose terminals outlive the programs run in them; never from a shell or a script,
// which share the console, nor under Wine, whose console is the terminal it was started from.
bool ownsConsoleWindowAlone();

// Says "Press Enter to close" on standard error, then waits until the person presses Enter (or
// the console closes). Keys pressed while the program ran do not count.
void waitForEnterToClose();

}  // namespace qm
