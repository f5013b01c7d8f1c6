#include "app/converter_job.h"

#include "app/input_snapshot.h"
#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "base/spare_processors.h"
#include "finalize/finalize.h"
#include "finalize/finalize_hooks.h"
#include "mdf/mdf_file.h"
#include "stream/buffered_stream.h"
#include "stream/compressed_stream.h"
#include "stream/container_header.h"
#include "stream/encrypted_stream.h"
#include "stream/key_derivation_rounds.h"
#include "stream/mapping_fault_watch.h"
#include "stream/output_file.h"

namespace qm {
namespace {

constexpr int kMaxContainerLayers = 32;

int viewLength(std::string_view text) { return static_cast<int>(text.size()); }

// One line saying why a file failed, where nothing else says it: "<file>: <reason>".
void logReason(std::string_view path, const char* reason) {
  QM_LOG_E("%.*s: %s", viewLength(path), path.data(), reason);
}

// The input as opened, with the buffering the options ask for: -1 buffers the whole file,
// 0 reads straight from it, n reads ahead n bytes.
std::unique_ptr<Stream> openBufferedInput(const ConverterJob& job, std::string_view input_path) {
  std::unique_ptr<Stream> input = job.root_directory->open(input_path, kOpenRead);
  if (!input) {
    int reason = errno;
    QM_LOG_E("Could not open input file %.*s", viewLength(input_path), input_path.data());
    logReason(input_path, std::strerror(reason));
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

const char* decryptionFailureText(DecryptionFailure failure) {
  switch (failure) {
    case DecryptionFailure::kMalformed:
      return "the encrypted container is too short or of an unknown version";
    case DecryptionFailure::kUnreadable:
      return "the encrypted container could not be read";
    case DecryptionFailure::kNoMemory:
      return "not enough memory to decrypt it";
    case DecryptionFailure::kCipher:
      return "the crypto library failed to decrypt it";
    case DecryptionFailure::kNone:
    case DecryptionFailure::kTagMismatch:
      break;
  }
  return "it could not be decrypted";
}

void logDecryptionFailure(std::string_view input_path, DecryptionFailure failure, std::uint32_t device_id) {
  if (failure == DecryptionFailure::kTagMismatch) {
    QM_LOG_E("%.*s: wrong password for device %X, or the file is damaged", viewLength(input_path), input_path.data(),
             device_id);
    return;
  }
  logReason(input_path, decryptionFailureText(failure));
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

std::int32_t unwrapContainers(const ConverterJob& job, std::string_view input_path, std::unique_ptr<Stream>& current,
                              bool& inner_close_failed) {
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
      current = openCompressed(std::move(current), header);
      if (!current) {
        logReason(input_path, "the compressed container is damaged");
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
      DecryptionFailure failure = DecryptionFailure::kNone;
      std::unique_ptr<Stream> decrypted = openEncrypted(current.get(), header, password->view(), &failure);
      if (!decrypted) {
        logDecryptionFailure(input_path, failure, header.device_id);
        current->close();
        return kNoPassword;
      }
      // The decrypted content is all in memory: the layer beneath is done with.
      if (current->close() != 0) inner_close_failed = true;
      current = std::move(decrypted);
    } else {
      QM_LOG_E("%.*s: unknown container type %u", viewLength(input_path), input_path.data(),
               static_cast<unsigned>(header.container_type));
      current->close();
      return kConversionFailed;
    }
  }
  return kConverted;
}

// Why the innermost stream holds no MDF4 file that could be opened.
void logWhyNotMdf(std::string_view input_path, Stream* content) {
  constexpr std::string_view kFinalizedId = "MDF     ";
  constexpr std::string_view kUnfinalizedId = "UnFinMF ";
  char id[8];
  if (streamSize(content) == 0) {
    logReason(input_path, "the file is empty");
  } else if (!setPosition(content, 0) || content->read(id, sizeof id) != static_cast<std::int64_t>(sizeof id) ||
             (std::string_view(id, sizeof id) != kFinalizedId && std::string_view(id, sizeof id) != kUnfinalizedId)) {
    logReason(input_path, "not an MDF4 file");
  } else {
    logReason(input_path, "its MDF4 blocks could not be read");
  }
}

// The input is removed only after its output was written and the input closed cleanly.
void deleteInput(const ConverterJob& job, std::string_view input_path) {
  if (!job.root_directory->removeFile(input_path)) {
    int reason = errno;
    QM_LOG_E("Could not remove input file after conversion: %.*s", viewLength(input_path), input_path.data());
    logReason(input_path, std::strerror(reason));
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

  bool inner_close_failed = false;
  if (std::int32_t result = unwrapContainers(job, input_path, current, inner_close_failed); result != kConverted) {
    return result;
  }

  std::unique_ptr<MdfFile> file = MdfFile::open(current.get(), &finalizeLoadHooks());
  if (!file || !file->header()) {
    file.reset();
    logWhyNotMdf(input_path, current.get());
    current->close();
    return kConversionFailed;
  }

  LossReport losses;
  bool converted = openOutput(job, output_stem, *file, &input, &losses);

  if (current->close() != 0 || inner_close_failed) {
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
bool outputPlaceTaken(const ConverterJob& job, std::string_view output_path, int* reason) {
  DirectoryEntry entry;
  if (!job.output_root->stat(output_path, &entry) || entry.type == kEntryMissing || entry.type == kEntryFile) {
    return false;
  }
  *reason = entry.type == kEntryDirectory ? EISDIR : EEXIST;
  return true;
}

bool openOutput(const ConverterJob& job, std::string_view output_stem, MdfFile& file, const InputSnapshot* input,
                LossReport* losses) {
  SmallString output_path(output_stem);
  output_path.append(kOutputSuffix);
  int reason = 0;
  std::unique_ptr<OutputFile> output;
  if (!outputPlaceTaken(job, output_path.view(), &reason)) {
    // Only an output whose input is about to be removed needs to be on the disk before that.
    output = OutputFile::create(*job.output_root, output_path.view(), job.options->delete_converted);
    reason = errno;
  }
  if (!output) {
    QM_LOG_E("Could not open output file for finalization: %s", output_path.c_str());
    logReason(output_path.view(), std::strerror(reason));
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
