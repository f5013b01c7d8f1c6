#include "output/output_file.h"

#include "base/log.h"
#include "platform/file_system.h"
#include "platform/system_error.h"

namespace qm {
namespace {

SmallString temporaryPathOf(std::string_view final_path) {
  SmallString path(final_path);
  path.append(kPartialSuffix);
  return path;
}

std::string_view folderOf(std::string_view path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

}  // namespace

std::unique_ptr<OutputFile> OutputFile::create(const DirectoryHandle& directory, std::string_view final_path,
                                               bool durable, SyncFunction sync) {
  std::unique_ptr<OutputFile> output(new OutputFile(directory, final_path, durable, sync));
  bool created = output->pending_.create([&] {
    output->file_ = FileStream::open(output->pending_.path().c_str(), kFileWrite);
    return output->file_ != nullptr;
  });
  if (!created) {
    int reason = lastSystemError();
    output->done_ = true;  // nothing to remove
    output.reset();
    setLastSystemError(reason);
    return nullptr;
  }
  return output;
}

OutputFile::OutputFile(const DirectoryHandle& directory, std::string_view final_path, bool durable,
                       SyncFunction sync)
    : directory_(directory),
      final_path_(final_path),
      temporary_path_(temporaryPathOf(final_path)),
      pending_(directory.join(temporary_path_.view()).view()),
      durable_(durable),
      sync_(sync) {}

OutputFile::~OutputFile() {
  if (!done_) removeTemporary();
}

bool OutputFile::commit() {
  if (done_) return false;
  if (!closeFile()) {
    removeTemporary();
    return false;
  }
  const SmallString& from = pending_.path();
  SmallString to = directory_.join(final_path_.view());
  // A stop signal from here on leaves the file to become complete under its final name.
  pending_.forget();
  if (!renameReplacing(from.c_str(), to.c_str())) {
    QM_LOG_E("Could not rename %s to %s: %s", temporary_path_.c_str(), final_path_.c_str(),
             systemErrorText(lastSystemError()));
    removeTemporary();
    return false;
  }
  done_ = true;
  // The output is complete under its name; without the folder on disk a power cut could still
  // undo the rename, so a durable output fails here and its input is kept.
  return !durable_ || syncFolder();
}

void OutputFile::abandon() {
  if (done_) return;
  if (file_->lastError() != 0) {
    QM_LOG_E("Could not write output file %s: %s", final_path_.c_str(), systemErrorText(file_->lastError()));
  }
  removeTemporary();
}

bool OutputFile::closeFile() {
  // Writes gathered in memory fail here if the system refuses them, as a write.
  if (!file_->handOverWrites() || file_->lastError() != 0) {
    QM_LOG_E("Could not write output file %s: %s", final_path_.c_str(), systemErrorText(file_->lastError()));
    return false;
  }
  if (durable_ && !file_->syncToDisk(sync_)) {
    QM_LOG_E("Could not flush output file %s to disk: %s", final_path_.c_str(), systemErrorText(file_->lastError()));
    return false;
  }
  if (file_->close() != 0) {
    QM_LOG_E("Could not write output file %s: %s", final_path_.c_str(), systemErrorText(file_->lastError()));
    return false;
  }
  return true;
}

bool OutputFile::syncFolder() {
  SmallString folder = directory_.join(folderOf(final_path_.view()));
  bool synced = flushFolderToDisk(folder.empty() ? "." : folder.c_str(), sync_);
  if (!synced) {
    QM_LOG_E("Could not flush folder of %s to disk: %s", final_path_.c_str(), systemErrorText(lastSystemError()));
  }
  return synced;
}

void OutputFile::removeTemporary() {
  done_ = true;
  // What is still gathered would only be written to be removed.
  file_->discardWrites();
  file_->close();
  directory_.removeFile(temporary_path_.view());
  pending_.forget();
}

}  // namespace qm
