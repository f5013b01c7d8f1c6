#pragma once
// Walks the inputs: files are converted, folders descended into; output paths mirror the inputs.
#include <cstdint>
#include <string_view>
#include <vector>

#include "app/converter_job.h"
#include "app/output_claims.h"

namespace qm {

// True when any input failed.
bool runInputs(const ConverterJob& job, const std::vector<SmallString>& inputs);

// One walk over the inputs of a run.
class InputWalk {
 public:
  explicit InputWalk(const ConverterJob& job) : job_(job) {}
  // True when any input failed.
  bool run(const std::vector<SmallString>& inputs);
  // Converts a file or walks a folder; the OR of the result codes, 0 for success.
  std::int32_t walkEntry(std::string_view input_path, std::string_view output_path);

 private:
  std::int32_t walkFile(std::string_view input_path, std::string_view output_path);
  std::int32_t walkFolder(std::string_view input_path, std::string_view output_path);

  const ConverterJob& job_;
  OutputClaims claims_;
};

// mf4, mfc, mfe or mfm, in any case.
bool acceptFileName(std::string_view path);

// The output name of an input given on the command line: "_out" goes in front of the first "/"
// of a folder's name (or at its end).
SmallString outputNameForFolder(std::string_view name);

// Creates each folder of `directory_path` under the output root; stops at the first failure.
void makeOutputDirectories(const DirectoryHandle& output_root, std::string_view directory_path);

}  // namespace qm
