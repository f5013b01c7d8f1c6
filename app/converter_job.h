#pragma once
// One conversion run over the inputs: where files are read from and written to, and the
// options that shape each conversion. Everything here is borrowed from the run context.
#include <cstdint>
#include <memory>
#include <string_view>

#include "app/run_context.h"

namespace qm {

class InputSnapshot;
class MdfFile;

// Appended to an input's stem to name its output.
inline constexpr std::string_view kOutputSuffix = "_fin.MF4";

// Result codes of converting one file.
enum ConversionResult : std::int32_t {
  kConverted = 0,
  kNoPassword = 2,      // no password for the device, or decryption refused
  kNotDecompressed = 4,
  kConversionFailed = 8,
};

struct ConverterJob {
  DirectoryHandle* root_directory;
  DirectoryHandle* output_root;
  const ConversionOptions* options;

  // Null when any of the three is missing.
  static std::unique_ptr<ConverterJob> create(DirectoryHandle* root, DirectoryHandle* output,
                                              const ConversionOptions* options);
};

// Converts one input (relative to the root) into `<output_stem>_fin.MF4` under the output root.
std::int32_t convertFile(const ConverterJob* job, std::string_view input_path, std::string_view output_stem);

// Opens the output, finalizes the file and saves it; the output is closed before returning. It
// is committed only if the input (when given) is still as it was when it was read.
bool openOutput(const ConverterJob& job, std::string_view output_stem, MdfFile& file,
                const InputSnapshot* input = nullptr);

}  // namespace qm
