#pragma once
// The program's arguments as UTF-8, the program's own text. Windows hands a C program its
// arguments in the system's legacy code page, in which a file name in another script arrives as
// question marks; its own copy of the command line is in UTF-16.
#include <string>
#include <vector>

namespace qm {

// The arguments main() was given (the program's name first), as UTF-8: on POSIX systems
// `argv` as it is, whose bytes are what the system holds; on Windows the process's command line
// as the system splits it (quotes as the C library reads them, no wildcards expanded), converted.
std::vector<std::string> programArguments(int argc, char** argv);

}  // namespace qm
