#pragma once
// Writes a complete logger file of about the requested size into a sink, streaming: memory use
// does not grow with the size.
#include <cstdint>

#include "tools/mdfgen/byte_sink.h"

namespace qm {

struct LoggerFileSettings {
  std::uint64_t size = 1 << 20;  // approximate total, in bytes
  std::uint64_t seed = 1;
  bool sorted = false;  // an already finalized file instead of the logger's unfinalized one
  // An identification no reader accepts: a reader unwraps the containers and stops there,
  // which times the unwrapping alone.
  bool damaged_id = false;
};

bool writeLoggerFile(const LoggerFileSettings& settings, ByteSink& sink);

}  // namespace qm
