#include "app/input_walk.h"

#include <cctype>

#include "base/failure.h"
#include "base/log.h"
#include "memory/mapped_blocks.h"
#include "platform/system_error.h"

namespace qm {
namespace {

int viewLength(std::string_view text) { return static_cast<int>(text.size()); }

std::string_view directoryPart(std::string_view path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

// An output at least as new as its input was made from the input as it is now.
bool outputUpToDate(const DirectoryHandle& output_root, std::string_view output_file, const DirectoryEntry& input) {
  DirectoryEntry output;
  return output_root.stat(output_file, &output) && output.type == kEntryFile && output.modified_ns >= input.modified_ns;
}

void reportFailure(std::string_view input_path) {
  QM_LOG_E("Error during conversion of %.*s", viewLength(input_path), input_path.data());
}

std::int32_t convertAndReport(const ConverterJob& job, std::string_view input_path, std::string_view output_stem,
                              ProgressDisplay* progress, std::int64_t size, bool keep_input) {
  if (progress) progress->fileStarted(input_path);
  ConversionNotes notes;
  notes.keep_input = keep_input;
  std::int32_t result = convertFile(&job, input_path, output_stem, &notes);
  if (progress) progress->fileFinished(size, result == 0, notes.lossy);
  if (result != 0) reportFailure(input_path);
  return result;
}

}  // namespace

std::string_view withoutExtension(std::string_view path) {
  std::size_t dot = path.rfind('.');
  return dot == std::string_view::npos ? path : path.substr(0, dot);
}

SmallString joinPath(std::string_view directory, std::string_view name) {
  SmallString path(directory);
  if (!directory.empty()) path.append("/");
  path.append(name);
  return path;
}

bool acceptFileName(std::string_view path) {
  std::size_t dot = path.rfind('.');
  if (dot == std::string_view::npos || path.size() - dot - 1 != 3) return false;
  char extension[4] = {};
  for (int i = 0; i < 3; ++i) {
    extension[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(path[dot + 1 + i])));
  }
  std::string_view ext(extension, 3);
  return ext == "mf4" || ext == "mfc" || ext == "mfe" || ext == "mfm";
}

bool isFileToConvert(const ConverterJob& job, std::string_view input_path) {
  // Files of other shards are another run's: not counted, not logged, not touched.
  return acceptFileName(input_path) && inShard(job.options->shard, input_path);
}

SmallString outputNameForFolder(std::string_view name) {
  std::size_t slash = name.find('/');
  std::size_t at = slash == std::string_view::npos ? name.size() : slash;
  SmallString out(name.substr(0, at));
  out.append("_out");
  out.append(name.substr(at));
  return out;
}

void makeOutputDirectories(const DirectoryHandle& output_root, std::string_view directory_path) {
  SmallString accumulated;
  while (!directory_path.empty()) {
    std::size_t slash = directory_path.find('/');
    std::string_view component = directory_path.substr(0, slash);
    directory_path = slash == std::string_view::npos ? std::string_view() : directory_path.substr(slash + 1);
    if (component.empty()) continue;
    accumulated = SmallString::format("%s%s%.*s", accumulated.c_str(), accumulated.empty() ? "" : "/",
                                      viewLength(component), component.data());
    if (!output_root.makeDirectory(accumulated.view())) {
      // An existing folder is what we want; anything else stops here.
      DirectoryEntry entry;
      if (!output_root.stat(accumulated.view(), &entry) || entry.type != kEntryDirectory) return;
    }
  }
}

std::int32_t InputWalk::walkFile(std::string_view input_path, std::string_view output_path,
                                 const DirectoryEntry& input) {
  if (!isFileToConvert(job_, input_path)) return 0;
  const std::int64_t size = input.size;
  std::string_view stem = withoutExtension(output_path);
  makeOutputDirectories(*job_.output_root, directoryPart(stem));
  SmallString output_file(stem);
  output_file.append(kOutputSuffix);
  if (!claims_.claim(*job_.root_directory, input_path, *job_.output_root, output_file.view())) {
    reportFailure(input_path);
    if (progress_) progress_->fileFinished(size, false);
    return kConversionFailed;
  }
  if (job_.options->update && outputUpToDate(*job_.output_root, output_file.view(), input)) {
    // Never deleted: its output may come from another run.
    QM_LOG_I("Up to date: %.*s", viewLength(input_path), input_path.data());
    if (progress_) progress_->fileSkipped(size);
    return 0;
  }
  if (!claims_.mayWrite(input_path, *job_.output_root, output_file.view())) {
    reportFailure(input_path);
    if (progress_) progress_->fileFinished(size, false);
    return kConversionFailed;
  }
  const bool keep_input = twins_.contains(input_path);
  if (!pool_) {
    keepWithinBudget(sharedBlockCache(), conversionMemoryEstimate(input_path, size), job_.options->memory_budget);
    return convertAndReport(job_, input_path, stem, progress_, size, keep_input);
  }
  pool_->submit(conversionMemoryEstimate(input_path, size),
                [this, input = SmallString(input_path), output_stem = SmallString(stem), size, keep_input] {
                  if (convertAndReport(job_, input.view(), output_stem.view(), progress_, size, keep_input) != 0) {
                    pool_failed_ = true;
                  }
                });
  return 0;
}

std::int32_t InputWalk::walkFolder(std::string_view input_path, std::string_view output_path) {
  std::vector<DirectoryEntry> entries;
  if (!job_.root_directory->list(input_path, &entries)) {
    // A folder skipped in silence would be skipped by every later run too.
    const Failure reason = Failure::system(lastSystemError());
    QM_LOG_E("Could not list folder %.*s: %s", viewLength(input_path), input_path.data(),
             describeFailure(reason).c_str());
    return kConversionFailed;
  }
  claims_.notePendingFolder(*job_.root_directory, input_path, entries);
  noteTwins(input_path, entries);
  std::int32_t result = 0;
  for (const DirectoryEntry& entry : entries) {
    SmallString path = joinPath(input_path, entry.name.view());
    if (entry.type == kEntryDirectory && own_outputs_.contains(path.view())) continue;
    result |= walkEntry(path.view(), joinPath(output_path, entry.name.view()).view());
  }
  return result;
}

void InputWalk::noteTwins(std::string_view folder, const std::vector<DirectoryEntry>& files) {
  HashMap<SmallString, SmallString> first_of_stem;  // stem -> the first input with it
  for (const DirectoryEntry& entry : files) {
    if (entry.type != kEntryFile) continue;
    SmallString path = joinPath(folder, entry.name.view());
    if (!isFileToConvert(job_, path.view())) continue;
    std::string_view stem = withoutExtension(path.view());
    if (const SmallString* first = first_of_stem.find(stem)) {
      twins_.insert(first->view(), true);
      twins_.insert(path.view(), true);
    } else {
      first_of_stem.insert(stem, path);
    }
  }
}

std::int32_t InputWalk::walkEntry(std::string_view input_path, std::string_view output_path) {
  DirectoryEntry entry;
  if (!job_.root_directory->stat(input_path, &entry)) {
    QM_LOG_F("Error during stat of %.*s, exiting", viewLength(input_path), input_path.data());
    return 0;
  }
  switch (entry.type) {
    case kEntryMissing:
      QM_LOG_W("Could not find input file/folder %.*s", viewLength(input_path), input_path.data());
      return 1;
    case kEntryFile:
      return walkFile(input_path, output_path, entry);
    case kEntryDirectory:
      return walkFolder(input_path, output_path);
    default:
      return 129;
  }
}

bool InputWalk::run(const std::vector<SmallString>& inputs) {
  int workers = workersForJobs(job_.options->jobs);
  if (workers <= 1) return walkInputs(inputs);
  bool failed;
  {
    ConversionPool pool(workers, job_.options->memory_budget);
    pool_ = &pool;
    failed = walkInputs(inputs);
    pool.waitForAll();
    pool_ = nullptr;
  }
  return failed || pool_failed_;
}

bool InputWalk::walkInputs(const std::vector<SmallString>& inputs) {
  // Files named on the command line are still to be converted too, until their turn comes.
  std::vector<DirectoryEntry> named_files;
  for (const SmallString& name : inputs) {
    DirectoryEntry entry;
    if (job_.root_directory->stat(name.view(), &entry) && entry.type == kEntryFile) {
      claims_.notePendingFile(*job_.root_directory, name.view());
      entry.name = name;
      named_files.push_back(std::move(entry));
    }
  }
  noteTwins("", named_files);
  bool failed = false;
  for (const SmallString& name : inputs) {
    SmallString output = name;
    if (!job_.options->no_append_root) {
      DirectoryEntry entry;
      if (!job_.root_directory->stat(name.view(), &entry)) {
        QM_LOG_F("Could not query %.*s for information", viewLength(name.view()), name.data());
        return true;
      }
      if (entry.type == kEntryDirectory) output = outputNameForFolder(name.view());
    }
    failed |= walkEntry(name.view(), output.view()) != 0;
  }
  return failed;
}

std::uint64_t conversionMemoryEstimate(std::string_view input_path, std::int64_t size) {
  auto bytes = static_cast<std::uint64_t>(size > 0 ? size : 0);
  std::size_t dot = input_path.rfind('.');
  std::string_view extension = dot == std::string_view::npos ? std::string_view() : input_path.substr(dot + 1);
  bool plain = extension.size() == 3 && std::tolower(static_cast<unsigned char>(extension[0])) == 'm' &&
               std::tolower(static_cast<unsigned char>(extension[1])) == 'f' && extension[2] == '4';
  return plain ? bytes + bytes / 4 : bytes * 4;
}

bool runInputs(const ConverterJob& job, const std::vector<SmallString>& inputs, ProgressDisplay* progress) {
  InputWalk walk(job, inputs, progress);
  return walk.run(inputs);
}

}  // namespace qm
