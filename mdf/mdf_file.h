#pragma once
// One MDF4 file in memory: the input stream and the block tree loaded from it.
#include <memory>

#include "base/failure.h"
#include "mdf/block.h"

namespace qm {

class IdBlock;
class HeaderBlock;
class LoadHooks;

class MdfFile {
 public:
  // Loads the identification block at 0 and the header block at 64 with everything reachable
  // from it. None for a null stream, an unknown file id or any block that fails to load, with
  // the reason in `why` when given. The stream is borrowed and must outlive the file object.
  // `hooks` may be null.
  static std::unique_ptr<MdfFile> open(Stream* stream, LoadHooks* hooks = nullptr, Failure* why = nullptr);

  // Writes the whole tree from position 0 of `output`; true if the identification block saved.
  bool save(Stream* output);

  IdBlock* id() const;
  HeaderBlock* header() const;
  // The header's data groups (null if there is no header).
  BlockList* dataGroups() const;
  Stream* stream() const { return stream_; }
  const BlockRef& root() const { return root_; }

 private:
  explicit MdfFile(Stream* stream) : stream_(stream) {}

  Stream* stream_;  // borrowed: the input
  BlockRef root_;   // the identification block
};

}  // namespace qm
