#include "tests/robustness/logger_file.h"

#include <gtest/gtest.h>

#include "mdf/channel_group_block.h"
#include "tests/support/mdf_builder.h"

namespace qm::test {

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
