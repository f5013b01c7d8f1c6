#pragma once
// Reads the block tree of an MDF4 file for checking: every link must lead to a block of the
// expected kind inside the file, with the expected number of links and a length that holds
// them. What is found is collected in a plain description; what is wrong, as problems.
#include <cstdint>
#include <string>
#include <vector>

#include "base/printf_format.h"
#include "tools/mdfgen/byte_source.h"

namespace qm {

class ProblemList {
 public:
  void add(const char* format, ...) QM_PRINTF_FORMAT(2, 3);
  bool empty() const { return items_.empty(); }
  const std::vector<std::string>& items() const { return items_; }
  std::size_t dropped() const { return dropped_; }

 private:
  static constexpr std::size_t kLimit = 50;
  std::vector<std::string> items_;
  std::size_t dropped_ = 0;
};

struct ChannelInfo {
  std::string name;
  std::uint8_t channel_type = 0;
  std::uint8_t data_type = 0;
  std::uint32_t bit_position = 0;  // from the start of the record's data bytes
  std::uint32_t bit_count = 0;
  std::uint64_t data_link = 0;
};

struct ChannelGroupInfo {
  std::uint64_t offset = 0;
  std::string acquisition_name;
  std::uint64_t record_id = 0;
  std::uint64_t cycle_count = 0;
  std::uint16_t flags = 0;
  std::uint32_t data_bytes = 0;
  std::uint32_t invalidation_bytes = 0;
  std::uint8_t source_type = 0;  // of the acquisition source, 0 when there is none
  std::uint8_t bus_type = 0;
  std::vector<ChannelInfo> channels;
  bool variableLength() const { return (flags & 1) != 0; }
};

struct DataGroupInfo {
  std::uint64_t offset = 0;
  std::uint8_t record_id_size = 0;
  std::uint64_t data_offset = 0;  // 0: no data block
  std::uint64_t data_length = 0;  // as it is to be read (see MdfTree::readTree)
  std::vector<ChannelGroupInfo> groups;
};

struct BlockExtent {
  std::uint64_t offset;
  std::uint64_t length;
};

struct MdfTree {
  std::uint64_t file_size = 0;
  std::string file_id;
  std::uint16_t version = 0;
  std::uint16_t standard_flags = 0;
  std::uint16_t custom_flags = 0;
  std::vector<DataGroupInfo> data_groups;
  std::vector<BlockExtent> signal_data;  // SD blocks linked from channels
  std::vector<BlockExtent> extents;      // every block found, for the overlap check
};

// Fills `tree` from the file. When the flags say the last DT length is stale, the DT block
// lying last in the file is taken to run to the end of the file.
void readMdfTree(const ByteSource& source, MdfTree& tree, ProblemList& problems);

}  // namespace qm
