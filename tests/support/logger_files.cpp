#include "tests/support/logger_files.h"

#include "tests/support/mdf_builder.h"

namespace qm::test {

std::string twoGroupLoggerFile(std::uint16_t seed, int records) {
  MdfBuilder b;
  b.id({.standard_flags = 0x0025});
  auto rpm = b.channel({.name = b.text("Rpm"), .byte_offset = 0, .bit_count = 32});
  auto cg2 = b.channelGroup({.first_channel = rpm, .record_id = 2, .data_bytes = 4});
  auto cg1 = b.channelGroup({.next = cg2, .first_channel = b.channel({.name = b.text("Speed"), .bit_count = 16}),
                             .record_id = 1, .data_bytes = 2});
  std::string bytes;
  for (int i = 0; i < records; ++i) {
    bytes += i % 2 ? MdfBuilder::record(2, 1, MdfBuilder::u32(seed * 1000u + static_cast<std::uint32_t>(i)))
                   : MdfBuilder::record(1, 1, MdfBuilder::u16(static_cast<std::uint16_t>(seed + i)));
  }
  auto dt = b.data(bytes);
  b.setLength(dt, 24);
  b.header({.first_data_group = b.dataGroup({.first_channel_group = cg1, .data = dt, .record_id_size = 1})});
  return b.bytes();
}

}  // namespace qm::test
