#include "platform/windows/path_facts.h"

#include "platform/system_error.h"

namespace qm {

std::int64_t nanosecondsSince1970(std::int64_t ticks_since_1601) {
  constexpr std::int64_t kTicksFrom1601To1970 = 116'444'736'000'000'000;
  std::int64_t nanoseconds;
  if (__builtin_mul_overflow(ticks_since_1601 - kTicksFrom1601To1970, 100, &nanoseconds)) {
    return ticks_since_1601 < kTicksFrom1601To1970 ? INT64_MIN : INT64_MAX;
  }
  return nanoseconds;
}

std::int64_t nanosecondsSince1970(const FILETIME& time) {
  const std::uint64_t ticks = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  return nanosecondsSince1970(static_cast<std::int64_t>(ticks & INT64_MAX));
}

bool factsOfHandle(HANDLE handle, PathFacts* facts) {
  *facts = PathFacts{};
  // A pipe or a device (NUL, CON) has no record of a file on a disk.
  if (GetFileType(handle) != FILE_TYPE_DISK) return true;
  BY_HANDLE_FILE_INFORMATION info;
  if (!GetFileInformationByHandle(handle, &info)) return false;
  facts->modified_ns = nanosecondsSince1970(info.ftLastWriteTime);
  // The change time also moves with a change of the record alone; not every file system keeps it.
  FILE_BASIC_INFO basic;
  const bool has_change_time = GetFileInformationByHandleEx(handle, FileBasicInfo, &basic, sizeof basic) &&
                               basic.ChangeTime.QuadPart != 0;
  facts->changed_ns = has_change_time ? nanosecondsSince1970(basic.ChangeTime.QuadPart) : facts->modified_ns;
  // The file's number on its volume, mixed with the volume's: a file put in place of another
  // gets another number. On one volume two files never share an identity.
  const std::uint64_t index = (std::uint64_t{info.nFileIndexHigh} << 32) | info.nFileIndexLow;
  facts->identity = index ^ (std::uint64_t{info.dwVolumeSerialNumber} << 32);
  if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    facts->type = PathType::kFolder;
  } else {
    facts->type = PathType::kFile;
    facts->size = static_cast<std::int64_t>((std::uint64_t{info.nFileSizeHigh} << 32) | info.nFileSizeLow);
  }
  return true;
}

void explainRefusal(const std::wstring& path) {
  const DWORD reason = GetLastError();
  if (reason != ERROR_ACCESS_DENIED) return;
  const DWORD attributes = GetFileAttributesW(path.c_str());
  const bool folder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  SetLastError(folder ? static_cast<DWORD>(systemErrorIsADirectory()) : reason);
}

void closeKeepingReason(HANDLE handle) {
  const DWORD reason = GetLastError();
  CloseHandle(handle);
  SetLastError(reason);
}

}  // namespace qm
