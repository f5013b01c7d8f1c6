#include "tests/robustness/memory_conversion.h"

#include <memory>

#include "finalize/finalize.h"
#include "finalize/finalize_hooks.h"
#include "finalize/record_reader.h"
#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/id_block.h"
#include "mdf/mdf_file.h"
#include "mdf/payload_block.h"
#include "stream/buffered_stream.h"
#include "container/compressed_stream.h"
#include "container/container_header.h"
#include "container/encrypted_stream.h"
#include "stream/memory_stream.h"
#include "tests/support/byte_stream.h"

namespace qm::test {
namespace {

std::unique_ptr<Stream> memoryOf(std::string_view bytes) {
  auto stream = std::make_unique<MemoryStream>();
  if (!bytes.empty()) stream->write(bytes.data(), bytes.size());
  stream->seek(0, kSeekSet);
  return stream;
}

// Null when a layer is refused.
std::unique_ptr<Stream> peelContainers(std::unique_ptr<Stream> current) {
  ContainerHeader header{};
  while (current && detectContainer(current.get(), &header) == 1) {
    if (header.container_type == kContainerCompressed) {
      current = openCompressed(std::move(current), header);
    } else if (header.container_type == kContainerEncrypted) {
      current = openEncrypted(std::move(current), header, kContainerPassword);
    } else {
      return nullptr;
    }
  }
  return current;
}

std::string payloadOf(const BlockRef& block) {
  PayloadBlock* payload = blockAs<PayloadBlock>(block);
  if (!payload || payload->payloadStream()->seek(0, kSeekSet) != 0) return {};
  std::string bytes(payload->dataSectionSize(), '\0');
  std::int64_t n = payload->payloadStream()->read(bytes.data(), bytes.size());
  bytes.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return bytes;
}

}  // namespace

MemoryConversion convertInMemory(std::string_view input, std::size_t read_ahead) {
  MemoryConversion result;
  std::unique_ptr<Stream> stream = memoryOf(input);
  if (read_ahead > 0) stream = BufferedStream::create(std::move(stream), read_ahead);
  stream = peelContainers(std::move(stream));
  if (!stream) return result;
  std::unique_ptr<MdfFile> file = MdfFile::open(stream.get(), &finalizeLoadHooks());
  if (file) {
    result.opened = true;
    finalize(file.get());
    ByteStream output;
    result.saved = saveFinalized(file.get(), &output);
    result.output = std::move(output.bytes);
  }
  file.reset();
  stream->close();
  return result;
}

std::optional<FinalizedContent> readFinalized(std::string_view bytes) {
  std::unique_ptr<Stream> stream = memoryOf(bytes);
  std::unique_ptr<MdfFile> file = MdfFile::open(stream.get(), &finalizeLoadHooks());
  if (!file || !file->dataGroups()) return std::nullopt;
  FinalizedContent content;
  content.standard_flags = file->id()->standard_flags;
  for (const BlockRef& block : *file->dataGroups()) {
    DataGroupBlock* group = blockAs<DataGroupBlock>(block);
    if (!group || group->channel_groups.size() != 1) return std::nullopt;
    ChannelGroupBlock* channel_group = blockAs<ChannelGroupBlock>(group->channel_groups.front());
    std::string& records = content.records[channel_group->record_id];
    RecordIterator iterator(*group);
    while (const Record* record = iterator.next()) {
      records.append(reinterpret_cast<const char*>(record->payload), record->payload_size);
    }
    for (const BlockRef& channel : channel_group->channels) {
      content.signal_data += payloadOf(blockAs<ChannelBlock>(channel)->data);
    }
  }
  return content;
}

}  // namespace qm::test
