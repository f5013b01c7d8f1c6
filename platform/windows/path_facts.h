#pragma once
// The facts of a path or an open file as the system's records give them, and the reasons of
// failures that meet a folder.
#include <windows.h>

#include <string>

#include "platform/file_system.h"

namespace qm {

// Nanoseconds since 1970 of the system's count of 100 ns since 1601.
std::int64_t nanosecondsSince1970(std::int64_t ticks_since_1601);
std::int64_t nanosecondsSince1970(const FILETIME& time);

// Type, size, times and identity of an open file or folder; false, with the reason set, when
// the system does not say.
bool factsOfHandle(HANDLE handle, PathFacts* facts);

// A refused access to a folder where a file was expected reads as "is a directory", as on
// Linux; any other reason stays. Call right after the failed call, with the path it was given.
void explainRefusal(const std::wstring& path);

// Closes a handle without disturbing the reason a failure before it left.
void closeKeepingReason(HANDLE handle);

}  // namespace qm
