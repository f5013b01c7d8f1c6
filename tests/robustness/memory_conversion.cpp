#include "tests/robustness/memory_conversion.h"

#include <memory>

#include "stream/buffered_stream.h"
#include "container/compressed_stream.h"
#include "container/container_header.h"
#include "container/encrypted_stream.h"
#include "tests/support/byte_stream.h"
#include "tests/support/counting_stream.h"
#include "tests/support/opened_file.h"

namespace qm::test {
namespace {

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

}  // namespace

MemoryConversion convertInMemory(std::string_view input, std::size_t read_ahead) {
  MemoryConversion result;
  std::unique_ptr<Stream> stream = memoryStreamOf(input);
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
  OpenedFile file{std::string(bytes)};
  if (!file.file || !file.file->dataGroups()) return std::nullopt;
  FinalizedContent content;
  content.standard_flags = file.file->id()->standard_flags;
  for (std::size_t i = 0; i < file.groupCount(); ++i) {
    if (!file.group(i) || file.group(i)->channel_groups.size() != 1) return std::nullopt;
    ChannelGroupBlock* channel_group = channelGroup(file.group(i));
    std::string& records = content.records[channel_group->record_id];
    for (const std::string& record : recordsOf(*file.group(i))) records += record;
    for (const BlockRef& channel : channel_group->channels) {
      content.signal_data += payloadOf(blockAs<ChannelBlock>(channel)->data);
    }
  }
  return content;
}

}  // namespace qm::test
