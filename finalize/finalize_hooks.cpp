#include "finalize/finalize_hooks.h"

#include "finalize/channel_layouts.h"
#include "finalize/last_data_block.h"
#include "finalize/record_layouts.h"

namespace qm {

namespace {

class FinalizeLoadHooks : public LoadHooks {
 public:
  void dataGroupLoaded(DataGroupBlock& group) override { rebuildRecordLayouts(group); }
  void channelGroupLoaded(ChannelGroupBlock& group) override { channelLayouts(group); }
  void fileOpened(MdfFile& file) override { fixLastDataBlockLength(file); }
};

}  // namespace

LoadHooks& finalizeLoadHooks() {
  static FinalizeLoadHooks hooks;
  return hooks;
}

}  // namespace qm
