#pragma once
// One conversion run over the inputs: where files are read from and written to, and the
// options that shape each conversion. Everything here is borrowed from the run context.
#include <cstdint>
#include <memory>
#include <string_view>

#include "app/run_context.h"
#include "finalize/record_loss.h"

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

// What the walk tells one conversion beyond its paths, and hears back from it.
struct ConversionNotes {
  bool keep_input = false;  // in: never removed, as another input gives the same output
  bool lossy = false;       // out: converted, but complete records had to be left out
};

// Converts one input (relative to the root) into `<output_stem>_fin.MF4` under the output root.
// A conversion that drops records logs what it lost and keeps its input.
std::int32_t convertFile(const ConverterJob* job, std::string_view input_path, std::string_view output_stem,
                         ConversionNotes* notes = nullptr);

// Opens the output, finalizes the file and saves it; the output is closed before returning. It
// is committed only if the input (when given) is still as it was when it was read. Records the
// sort dropped go into `losses`, when given.
bool openOutput(const ConverterJob& job, std::string_view output_stem, MdfFile& file,
                const InputSnapshot* input = nullptr, LossReport* losses = nullptr);

}  // namespace qm
