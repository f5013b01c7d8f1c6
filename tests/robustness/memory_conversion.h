#pragma once
// Test helpers: the conversion of one input done wholly in memory (containers peeled, file
// opened, finalized, saved), what a finalized output holds, read back by the program's own
// loader, and a realistic logger file to feed it.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qm::test {

inline constexpr std::string_view kContainerPassword = "robust";

struct MemoryConversion {
  bool opened = false;  // the MDF4 structure loaded
  bool saved = false;   // and the writer reported success
  std::string output;   // what the writer produced
};

// Stacks a read-ahead buffer of `read_ahead` bytes over the input (none for 0), peels
// compressed and encrypted layers (the latter with kContainerPassword) like the conversion
// does, then opens, finalizes and saves.
MemoryConversion convertInMemory(std::string_view input, std::size_t read_ahead = 0);

// The content of a finalized file as the loader sees it: the record payloads of every channel
// group (keyed by record id, in file order, concatenated) and all signal data concatenated.
struct FinalizedContent {
  std::map<std::uint64_t, std::string> records;
  std::string signal_data;
  std::uint16_t standard_flags = 0;
};

// None when the bytes do not load, or when a data group does not hold exactly one channel
// group (a finalized file is sorted).
std::optional<FinalizedContent> readFinalized(std::string_view bytes);

// One already sorted data group with a conversion and a bus source; one unsorted data group
// (1-byte record ids) holding CAN frames whose payload bytes are in a VLSD channel group, and
// LIN frames, interleaved; texts and metadata on the way; the unsorted data block last, its
// length never written.
std::string loggerFile();

}  // namespace qm::test
