#pragma once
// Checks an MDF4 file as a reader would need it: the block tree (see mdf_tree.h), then every
// record of every data group: known record ids, records that exactly fill their data block,
// master times that never go back, variable-length references that land on a value, and
// cycle counts that match once the flags say they are valid. The summary describes each
// group's content (record count and a digest of the record bytes) in words that stay the same
// when a file is sorted, so an unfinalized file and its finalized form summarize alike.
#include <string>
#include <vector>

#include "tools/mdfgen/byte_source.h"

namespace qm {

struct VerifyReport {
  std::vector<std::string> problems;
  std::string file_line;                   // identification and counts
  std::vector<std::string> content_lines;  // one per channel group or signal data, sorted
  bool ok() const { return problems.empty(); }
};

VerifyReport verifyMdfFile(const ByteSource& source);

}  // namespace qm
