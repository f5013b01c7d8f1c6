#include "tests/robustness/memory_conversion.h"

#include <gtest/gtest.h>

#include <memory>

#include "stream/buffered_stream.h"
#include "container/compressed_stream.h"
#include "container/container_header.h"
#include "container/encrypted_stream.h"
#include "tests/support/byte_stream.h"
#include "tests/support/counting_stream.h"
#include "tests/support/mdf_builder.h"
#include "tests/support/opened_file.h"

namespace qm::test {
namespace {

constexpr std::uint64_t kCanId = 1, kValuesId = 2, kLinId = 3;

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

std::string loggerFile() {
  MdfBuilder b;
  b.id({.standard_flags = 0x0025});
  auto bus = b.source({.name = b.text("CAN1"), .path = b.text("bus/can1"), .source_type = 2, .bus_type = 2});
  auto scale = b.conversion({.name = b.text("scale"), .conversion_type = 1, .values = {0.5, 2.0}});
  auto temperature = b.channel({.name = b.text("Temperature"), .conversion = scale, .unit = b.text("degC"),
                                .bit_count = 16});
  auto sorted_group = b.channelGroup({.first_channel = temperature, .acquisition_name = b.text("ambient"),
                                      .cycle_count = 4, .data_bytes = 2});
  auto sorted_data = b.data(std::string("\x01\x00\x02\x00\x03\x00\x04\x00", 8));

  auto values = b.channelGroup({.record_id = kValuesId, .flags = kChannelGroupVlsd});
  auto can_bytes = b.channel({.name = b.text("CAN_DataFrame.DataBytes"), .data = values, .channel_type = 1,
                              .data_type = 10, .byte_offset = 12, .bit_count = 64});
  auto can_id = b.channel({.next = can_bytes, .name = b.text("CAN_DataFrame.ID"), .byte_offset = 8, .bit_count = 32});
  auto can_time = b.channel({.next = can_id, .name = b.text("Timestamp"), .channel_type = 2, .data_type = 4,
                             .bit_count = 64});
  auto lin_id = b.channel({.name = b.text("LIN_Frame.ID"), .byte_offset = 8, .bit_count = 8});
  auto lin_time = b.channel({.next = lin_id, .name = b.text("Timestamp"), .channel_type = 2, .data_type = 4,
                             .bit_count = 64});
  auto lin = b.channelGroup({.first_channel = lin_time, .acquisition_source = bus, .comment = b.metadata("<CGcomment/>"),
                             .record_id = kLinId, .data_bytes = 9});
  auto can = b.channelGroup({.first_channel = can_time, .acquisition_name = b.text("CAN"), .acquisition_source = bus,
                             .record_id = kCanId, .data_bytes = 20});
  b.chain({can, values, lin});

  std::string records;
  for (int i = 0; i < 12; ++i) {
    std::string frame(static_cast<std::size_t>(i % 9), static_cast<char>('a' + i));
    records += MdfBuilder::vlsdRecord(kValuesId, 1, frame);
    records += MdfBuilder::record(kCanId, 1, MdfBuilder::f64(i * 0.01) + MdfBuilder::u32(0x100 + i) +
                                                 MdfBuilder::u64(static_cast<std::uint64_t>(i)));
    if (i % 3 == 0) records += MdfBuilder::record(kLinId, 1, MdfBuilder::f64(i * 0.01) + std::string(1, static_cast<char>(i)));
  }
  auto first = b.dataGroup({.first_channel_group = sorted_group, .data = sorted_data, .comment = b.text("sorted")});
  auto second = b.dataGroup({.first_channel_group = can, .record_id_size = 1});
  b.chain({first, second});
  auto history = b.fileHistory({.comment = b.metadata("<FHcomment><tool_id>logger</tool_id></FHcomment>"), .time = 7});
  b.header({.first_data_group = first, .first_file_history = history, .comment = b.metadata("<HDcomment/>")});
  auto unsorted_data = b.data(records);  // created last, so it ends the file
  b.setLength(unsorted_data, 24);
  b.setLink(second, 2, unsorted_data);
  std::string bytes = b.bytes();
  EXPECT_EQ(b.offsetOf(unsorted_data) + 24 + records.size(), bytes.size()) << "the records must end the file";
  return bytes;
}

}  // namespace qm::test
