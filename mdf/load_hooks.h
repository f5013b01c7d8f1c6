#pragma once
// What the finalization hangs into a load: the block loaders call these at fixed points so the
// record layouts and the last data block's length are ready when the file is open. The
// finalization implements them; the block code only knows this interface.
namespace qm {

class DataGroupBlock;
class ChannelGroupBlock;
class MdfFile;

class LoadHooks {
 public:
  virtual ~LoadHooks() = default;
  // After a data group read its record id size (its channel groups are loaded by then).
  virtual void dataGroupLoaded(DataGroupBlock&) {}
  // After a channel group read its fields (its channels are loaded by then).
  virtual void channelGroupLoaded(ChannelGroupBlock&) {}
  // After the whole tree of a file loaded.
  virtual void fileOpened(MdfFile&) {}
};

}  // namespace qm
