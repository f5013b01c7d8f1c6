#pragma once
// Walks the inputs: files are converted, folders descended into; output paths mirror the inputs.
#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "app/conversion_pool.h"
#include "app/converter_job.h"
#include "app/output_claims.h"
#include "app/own_output_folders.h"
#include "app/progress_display.h"

namespace qm {

// True when any input failed. `progress`, when given, hears of every file converted.
bool runInputs(const ConverterJob& job, const std::vector<SmallString>& inputs, ProgressDisplay* progress = nullptr);

// One walk over the inputs of a run. With one job, each file is converted where the walk meets
// it; with more, files are handed to a pool of workers in walk order, and their failures are
// gathered when all have finished.
class InputWalk {
 public:
  InputWalk(const ConverterJob& job, const std::vector<SmallString>& inputs, ProgressDisplay* progress = nullptr)
      : job_(job), progress_(progress), own_outputs_(job, inputs) {}
  // True when any input failed.
  bool run(const std::vector<SmallString>& inputs);

 private:
  // Converts a file or walks a folder; the OR of the result codes, 0 for success (a file handed
  // to the pool counts as 0 here; its failure is noted in `pool_failed_`).
  std::int32_t walkEntry(std::string_view input_path, std::string_view output_path);
  std::int32_t walkFile(std::string_view input_path, std::string_view output_path, const DirectoryEntry& input);
  std::int32_t walkFolder(std::string_view input_path, std::string_view output_path);
  bool walkInputs(const std::vector<SmallString>& inputs);
  // Inputs that give one output (x.MF4 and x.MFC): only the first is converted, and neither
  // is ever removed, so that no later run can replace the first one's output with the second.
  void noteTwins(std::string_view folder, const std::vector<DirectoryEntry>& files);

  const ConverterJob& job_;
  ProgressDisplay* progress_;  // borrowed; null when no progress is shown
  OutputClaims claims_;
  OwnOutputFolders own_outputs_;
  HashMap<SmallString, bool> twins_;  // inputs, as the walk names them, that share an output
  ConversionPool* pool_ = nullptr;
  std::atomic<bool> pool_failed_{false};
};

// Memory a conversion of a file of `size` bytes is expected to hold at its peak: a plain file
// is mapped, a container is decoded into memory and may hold more than it stores.
std::uint64_t conversionMemoryEstimate(std::string_view input_path, std::int64_t size);

// A folder's path and an entry name, with "/" between them unless the folder path is empty.
SmallString joinPath(std::string_view directory, std::string_view name);

// mf4, mfc, mfe or mfm, in any case.
bool acceptFileName(std::string_view path);

// Whether the walk converts a file it meets; counting ahead of the walk asks the same. It takes
// the job so that options which narrow a run's choice of files can decide here too.
bool isFileToConvert(const ConverterJob& job, std::string_view input_path);

// The output name of an input given on the command line: "_out" goes in front of the first "/"
// of a folder's name (or at its end).
SmallString outputNameForFolder(std::string_view name);

// The part of a path before its extension.
std::string_view withoutExtension(std::string_view path);

// Creates each folder of `directory_path` under the output root; stops at the first failure.
void makeOutputDirectories(const DirectoryHandle& output_root, std::string_view directory_path);

}  // namespace qm
