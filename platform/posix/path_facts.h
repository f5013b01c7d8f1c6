#pragma once
// The facts of a path or an open file as the system's status record gives them.
#include <sys/stat.h>

#include "platform/file_system.h"

namespace qm {

inline PathFacts pathFactsOf(const struct stat& info) {
  PathFacts facts;
  facts.modified_ns = static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec;
  facts.changed_ns = static_cast<std::int64_t>(info.st_ctim.tv_sec) * 1'000'000'000 + info.st_ctim.tv_nsec;
  facts.identity = static_cast<std::uint64_t>(info.st_ino);
  if (S_ISREG(info.st_mode)) {
    facts.type = PathType::kFile;
    facts.size = static_cast<std::int64_t>(info.st_size);
  } else if (S_ISDIR(info.st_mode)) {
    facts.type = PathType::kFolder;
  }
  return facts;
}

}  // namespace qm
