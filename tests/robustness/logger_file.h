#pragma once
// A small but realistic unfinalized logger file for tests that damage or re-read it.
#include <cstdint>
#include <string>

namespace qm::test {

inline constexpr std::uint64_t kCanId = 1, kValuesId = 2, kLinId = 3;

// One already sorted data group with a conversion and a bus source; one unsorted data group
// (1-byte record ids) holding CAN frames whose payload bytes are in a VLSD channel group, and
// LIN frames, interleaved; texts and metadata on the way; the unsorted data block last, its
// length never written.
std::string loggerFile();

}  // namespace qm::test
