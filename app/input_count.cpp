#include "app/input_count.h"

#include "app/input_walk.h"

namespace qm {
namespace {

void countFile(const ConverterJob& job, std::string_view path, std::int64_t size, InputTotals& totals) {
  if (!isFileToConvert(job, path)) return;
  ++totals.files;
  totals.bytes += static_cast<std::uint64_t>(size > 0 ? size : 0);
}

void countFolder(const ConverterJob& job, const OwnOutputFolders& own_outputs, std::string_view folder,
                 InputTotals& totals) {
  std::vector<DirectoryEntry> entries;
  job.root_directory->listQuietly(folder, &entries);
  for (const DirectoryEntry& entry : entries) {
    SmallString path = joinPath(folder, entry.name.view());
    if (entry.type == kEntryFile) countFile(job, path.view(), entry.size, totals);
    if (entry.type == kEntryDirectory && !own_outputs.contains(path.view())) {
      countFolder(job, own_outputs, path.view(), totals);
    }
  }
}

}  // namespace

InputTotals countInputs(const ConverterJob& job, const std::vector<SmallString>& inputs) {
  InputTotals totals;
  const OwnOutputFolders own_outputs(job, inputs);
  for (const SmallString& name : inputs) {
    DirectoryEntry entry;
    if (!job.root_directory->stat(name.view(), &entry)) continue;
    if (entry.type == kEntryFile) countFile(job, name.view(), entry.size, totals);
    if (entry.type == kEntryDirectory) countFolder(job, own_outputs, name.view(), totals);
  }
  return totals;
}

}  // namespace qm
