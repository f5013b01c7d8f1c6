#pragma once
// Opening built files and saving trees for the block tests.
#include <memory>
#include <string>

#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/mdf_file.h"
#include "stream/memory_stream.h"
#include "tests/support/byte_stream.h"
#include "tests/support/counting_stream.h"
#include "tests/support/mdf_builder.h"

namespace qm::test {

struct OpenedFile {
  std::unique_ptr<MemoryStream> input;
  std::unique_ptr<MdfFile> file;
};

inline OpenedFile openBytes(const std::string& bytes, LoadHooks* hooks = nullptr) {
  OpenedFile opened{memoryStreamOf(bytes), nullptr};
  opened.file = MdfFile::open(opened.input.get(), hooks);
  return opened;
}

// Saves over `background` so tests can tell written bytes from never-written ones.
inline std::string saveToBytes(MdfFile& file, std::string background = {}) {
  ByteStream output(std::move(background));
  if (!file.save(&output)) return {};
  return output.bytes;
}

// The builder's file opened and saved again over `background` ("" when it does not open).
inline std::string resaved(MdfBuilder& b, std::string background = {}) {
  OpenedFile opened = openBytes(b.bytes());
  return opened.file ? saveToBytes(*opened.file, std::move(background)) : std::string();
}

// One data group holding one channel group holding `channel`, hung into the header. With
// `as_written`, laid out at 168, 232 and 336, where the writer puts them.
inline void hangInOneGroup(MdfBuilder& b, MdfBuilder::Handle channel, bool as_written = false) {
  auto cg = b.channelGroup({.first_channel = channel});
  auto dg = b.dataGroup({.first_channel_group = cg});
  b.header({.first_data_group = dg});
  if (!as_written) return;
  b.place(dg, 168);
  b.place(cg, 232);
  b.place(channel, 336);
}

// The first channel of the first channel group of the first data group.
inline ChannelBlock* firstChannel(MdfFile& file) {
  auto* dg = blockAs<DataGroupBlock>(file.dataGroups()->front());
  return blockAs<ChannelBlock>(blockAs<ChannelGroupBlock>(dg->channel_groups.front())->channels.front());
}

}  // namespace qm::test
