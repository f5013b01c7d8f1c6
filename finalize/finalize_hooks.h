#pragma once
// The finalization's part of loading a file: record layouts for every data group, channel
// layouts for every channel group, and the last data block's length once the tree is loaded.
#include "mdf/load_hooks.h"

namespace qm {

// One shared object; open files with MdfFile::open(stream, &finalizeLoadHooks()).
LoadHooks& finalizeLoadHooks();

}  // namespace qm
