#include "app/converter_job.h"

#include "app/input_snapshot.h"
#include "base/failure.h"
#include "base/log.h"
#include "base/spare_processors.h"
#include "finalize/finalize.h"
#include "finalize/finalize_hooks.h"
#include "mdf/mdf_file.h"
#include "platform/system_error.h"
#include "stream/buffered_stream.h"
#include "container/compressed_stream.h"
#include "container/container_header.h"
#include "container/encrypted_stream.h"
#include "container/key_derivation_rounds.h"
#include "memory/mapping_fault_watch.h"
#include "output/output_file.h"

namespace qm {
namespace {

constexpr int kMaxContainerLayers = 32;

int viewLength(std::string_view text) { return static_cast<int>(text.size()); }

// One line saying why a file failed, where nothing else says it: "<file>: <reason>".
void logReason(std::string_view path, const char* reason) {
  QM_LOG_E("%.*s: %s", viewLength(path), path.data(), reason);
}

void logFailure(std::string_view path, const Failure& failure) { logReason(path, describeFailure(failure).c_str()); }

// The input as opened, with the buffering the options ask for: -1 buffers the whole file,
// 0 reads straight from it, n reads ahead n bytes.
std::unique_ptr<Stream> openBufferedInput(const ConverterJob& job, std::string_view input_path) {
  std::unique_ptr<Stream> input = job.root_directory->open(input_path, kOpenRead);
  if (!input) {
    Failure reason = Failure::system(lastSystemError());
    QM_LOG_E("Could not open input file %.*s", viewLength(input_path), input_path.data());
    logFailure(input_path, reason);
    return nullptr;
  }
  std::int64_t buffer_size = job.options->buffer_size;
  if (buffer_size < 0) {
    ContainerHeader header{};
    // The encrypted layer reads its container piece by piece into the plaintext's place;
    // holding the whole container first would read it twice.
    const bool container = detectContainer(input.get(), &header) == 1;
    if (container && header.container_type == kContainerEncrypted) return input;
    buffer_size = streamSize(input.get());
    // A compressed container is read once, in order. Read into memory an earlier conversion
    // already used, it costs less than a mapping, whose pages are slow to reach the first time;
    // too large for such memory, it is mapped, which spares fresh pages for a copy.
    if (container && header.container_type == kContainerCompressed &&
        static_cast<std::uint64_t>(buffer_size) > kLargestRecycledBuffer) {
      return BufferedStream::create(std::move(input), static_cast<std::size_t>(buffer_size), 0);
    }
  }
  if (buffer_size <= 0) return input;
  std::unique_ptr<Stream> buffered = BufferedStream::create(std::move(input), static_cast<std::size_t>(buffer_size));
  if (!buffered) logReason(input_path, "could not be read into memory");
  return buffered;
}

// The device's id says which password was wrong.
void logDecryptionFailure(std::string_view input_path, const Failure& failure, std::uint32_t device_id) {
  if (failure.reason == FailureReason::kWrongPasswordOrDamaged) {
    QM_LOG_E("%.*s: wrong password for device %X, or the file is damaged", viewLength(input_path), input_path.data(),
             device_id);
    return;
  }
  logFailure(input_path, failure);
}

// Peels container layers off the stream until plain content is left. Returns 0 with `current`
// replaced by the innermost layer, or the result code of the failure (the stream is closed).
// One hostile file must not stall a whole batch for hours in the key derivation.
bool keyDerivationWithinLimit(Stream* container, std::string_view input_path) {
  std::uint32_t rounds = 0;
  if (!readKeyDerivationRounds(container, &rounds) || rounds <= kMaxKeyDerivationRounds) return true;
  QM_LOG_E("Encrypted file %.*s asks for %u key derivation rounds; more than %u are refused",
           viewLength(input_path), input_path.data(), rounds, kMaxKeyDerivationRounds);
  return false;
}

std::int32_t unwrapContainers(const ConverterJob& job, std::string_view input_path, std::unique_ptr<Stream>& current) {
  ContainerHeader header{};
  for (int layers = 0; detectContainer(current.get(), &header) == 1; ++layers) {
    // Real files nest two or three layers; a container that unwraps to itself would never end.
    if (layers == kMaxContainerLayers) {
      logReason(input_path, "containers nested more than 32 deep");
      current->close();
      return kConversionFailed;
    }
    if (header.container_type == kContainerCompressed) {
      QM_LOG_I("Found compressed file");
      // The compressed layer consumes the stream beneath it, also when it fails.
      Failure failure;
      current = openCompressed(std::move(current), header, &failure);
      if (!current) {
        logFailure(input_path, failure);
        return kNotDecompressed;
      }
    } else if (header.container_type == kContainerEncrypted) {
      QM_LOG_I("Found encrypted file");
      const SmallString* password = job.options->password_store.findForDevice(header.device_id);
      if (!password) {
        QM_LOG_E("No password found for device %X", header.device_id);
        current->close();
        return kNoPassword;
      }
      if (!keyDerivationWithinLimit(current.get(), input_path)) {
        current->close();
        return kNoPassword;
      }
      Failure failure;
      // Like the compressed layer, it consumes the stream beneath it, also when it fails.
      current = openEncrypted(std::move(current), header, password->view(), &failure);
      if (!current) {
        logDecryptionFailure(input_path, failure, header.device_id);
        return kNoPassword;
      }
    } else {
      QM_LOG_E("%.*s: unknown container type %u", viewLength(input_path), input_path.data(),
               static_cast<unsigned>(header.container_type));
      current->close();
      return kConversionFailed;
    }
  }
  return kConverted;
}

// The input is removed only after its output was written and the input closed cleanly.
void deleteInput(const ConverterJob& job, std::string_view input_path) {
  if (!job.root_directory->removeFile(input_path)) {
    Failure reason = Failure::system(lastSystemError());
    QM_LOG_E("Could not remove input file after conversion: %.*s", viewLength(input_path), input_path.data());
    logFailure(input_path, reason);
  }
}

// One line for every stretch salvaging skipped, then one for everything a conversion had to
// leave out.
void logLosses(std::string_view input_path, const LossReport& losses) {
  using ull = unsigned long long;
  for (const SkippedStretch& stretch : losses.skipped) {
    QM_LOG_W("Skipped %llu damaged bytes at offset %llu of %.*s; %llu records recovered after it",
             static_cast<ull>(stretch.bytes), static_cast<ull>(stretch.offset), viewLength(input_path),
             input_path.data(), static_cast<ull>(stretch.records_after));
  }
  QM_LOG_E("Data lost converting %.*s: %s", viewLength(input_path), input_path.data(),
           describeLosses(losses).c_str());
}

std::int32_t convertWatched(const ConverterJob& job, std::string_view input_path, std::string_view output_stem,
                            const InputSnapshot& input, ConversionNotes& notes) {
  std::unique_ptr<Stream> current = openBufferedInput(job, input_path);
  if (!current) return kConversionFailed;

  if (std::int32_t result = unwrapContainers(job, input_path, current); result != kConverted) {
    return result;
  }

  Failure failure;
  std::unique_ptr<MdfFile> file = MdfFile::open(current.get(), &finalizeLoadHooks(), &failure);
  if (!file || !file->header()) {
    file.reset();
    logFailure(input_path, failure ? failure : Failure{FailureReason::kMdfUnreadable, 0});
    current->close();
    return kConversionFailed;
  }

  LossReport losses;
  bool converted = openOutput(job, output_stem, *file, &input, &losses);

  if (current->close() != 0) {
    QM_LOG_E("Could not close input file after conversion: %.*s", viewLength(input_path), input_path.data());
    file.reset();
    current->close();
    return kConversionFailed;
  }
  if (!converted) return kConversionFailed;
  if (losses.any()) {
    // The output is what could be saved; the input still holds the rest.
    logLosses(input_path, losses);
    notes.lossy = true;
    return kConverted;
  }
  if (job.options->delete_converted && !notes.keep_input) deleteInput(job, input_path);
  return kConverted;
}

}  // namespace

std::unique_ptr<ConverterJob> ConverterJob::create(DirectoryHandle* root, DirectoryHandle* output,
                                                   const ConversionOptions* options) {
  if (!root || !output || !options) return nullptr;
  return std::unique_ptr<ConverterJob>(new ConverterJob{root, output, options});
}

// A folder (or anything but a file) where the output goes would only refuse it at the rename,
// after all the work.
bool outputPlaceTaken(const ConverterJob& job, std::string_view output_path, Failure* reason) {
  DirectoryEntry entry;
  if (!job.output_root->stat(output_path, &entry) || entry.type == kEntryMissing || entry.type == kEntryFile) {
    return false;
  }
  *reason = Failure::system(entry.type == kEntryDirectory ? systemErrorIsADirectory() : systemErrorExists());
  return true;
}

bool openOutput(const ConverterJob& job, std::string_view output_stem, MdfFile& file, const InputSnapshot* input,
                LossReport* losses) {
  SmallString output_path(output_stem);
  output_path.append(kOutputSuffix);
  Failure reason;
  std::unique_ptr<OutputFile> output;
  if (!outputPlaceTaken(job, output_path.view(), &reason)) {
    // Only an output whose input is about to be removed needs to be on the disk before that.
    output = OutputFile::create(*job.output_root, output_path.view(), job.options->delete_converted);
    if (!output) reason = Failure::system(lastSystemError());
  }
  if (!output) {
    QM_LOG_E("Could not open output file for finalization: %s", output_path.c_str());
    logFailure(output_path.view(), reason);
    return false;
  }
  finalize(&file, losses, job.options->salvage);
  bool saved = saveFinalized(&file, output->stream());
  // Bytes read from an input that shrank under us are zeros, not data; an input that changed
  // after it was read is not what the output holds.
  const MappingFaultWatch* watch = MappingFaultWatch::current();
  if (!saved || (watch && watch->pagesLost()) || (input && input->changed())) {
    output->abandon();
    return false;
  }
  return output->commit();
}

std::int32_t convertFile(const ConverterJob* job, std::string_view input_path, std::string_view output_stem,
                         ConversionNotes* notes) {
  if (!job) return kConversionFailed;
  ConversionNotes ignored;
  if (notes == nullptr) notes = &ignored;
  RunningConversion running;
  // Outlives every mapping of this conversion's input.
  MappingFaultWatch watch;
  InputSnapshot input(*job->root_directory, input_path);
  std::int32_t result = convertWatched(*job, input_path, output_stem, input, *notes);
  if (watch.pagesLost() || (result != kConverted && input.changed())) {
    QM_LOG_E("Input file changed during conversion: %.*s", viewLength(input_path), input_path.data());
    return kConversionFailed;
  }
  return result;
}

}  // namespace qm
