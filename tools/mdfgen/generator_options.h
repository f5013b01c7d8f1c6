#pragma once
// The generator's command line.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/mdfgen/container_wrap.h"
#include "tools/mdfgen/logger_file_writer.h"

namespace qm {

struct GeneratorOptions {
  LoggerFileSettings file;
  ContainerSettings containers;
  std::string out;
  std::string verify;  // a file to check instead of generating one
  bool help = false;
};

// "4096", "64k", "256M", "1G" (binary multiples); none for anything else or for 0.
std::optional<std::uint64_t> parseSize(std::string_view text);

// None after logging what is wrong with the arguments (program name excluded).
std::optional<GeneratorOptions> parseGeneratorOptions(const std::vector<std::string_view>& args);

const char* generatorUsage();

}  // namespace qm
