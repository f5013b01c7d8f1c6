#pragma once
// Small helpers shared by the generator's tests.
#include <cstdint>
#include <string>

#include "tools/mdfgen/byte_sink.h"
#include "tools/mdfgen/little_endian.h"
#include "tools/mdfgen/logger_file_writer.h"

namespace qm::test {

inline std::string generatedFile(std::uint64_t size, std::uint64_t seed, bool sorted = false) {
  StringSink sink;
  LoggerFileSettings settings;
  settings.size = size;
  settings.seed = seed;
  settings.sorted = sorted;
  return writeLoggerFile(settings, sink) ? sink.bytes() : std::string();
}

inline std::uint64_t fieldAt(const std::string& bytes, std::uint64_t offset, int size) {
  return getLe(reinterpret_cast<const unsigned char*>(bytes.data()) + offset, size);
}

inline void setFieldAt(std::string& bytes, std::uint64_t offset, std::uint64_t value, int size) {
  putLe(reinterpret_cast<unsigned char*>(bytes.data()) + offset, value, size);
}

}  // namespace qm::test
