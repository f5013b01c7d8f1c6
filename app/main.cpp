// quillmend: finalizes the MDF4 files that CAN/LIN bus loggers write, layer by layer.
#include <malloc.h>

#include <memory>
#include <new>

#include "app/command_line.h"
#include "app/converter_job.h"
#include "app/input_count.h"
#include "app/input_walk.h"
#include "app/progress_display.h"
#include "app/run_context.h"
#include "memory/large_buffer.h"
#include "output/pending_outputs.h"
#include "platform/stop_requests.h"
#include "platform/terminal.h"

namespace {

// Only a person at a terminal gets progress; only then are the inputs counted ahead.
std::unique_ptr<qm::ProgressDisplay> startProgress(const qm::ConverterJob& job, const qm::RunContext& context) {
  if (!qm::progressWanted(context.options)) return nullptr;
  qm::InputTotals totals = qm::countInputs(job, context.inputs);
  return std::make_unique<qm::ProgressDisplay>(qm::standardErrorHandle(), totals.files, totals.bytes);
}

// A folder's files need buffers of about their size, one conversion after another. The large
// ones keep their own freed blocks; those that grow from small (noted places, copied payloads)
// come from malloc, which is told to keep them too: handed back to the system, each conversion
// would pay for fresh pages again, which costs more than the work on them. Buffers larger than
// kLargestRecycledBuffer still come straight from the system and go back to it.
void keepFreedBuffers() {
  constexpr int kKeptBeforeTrimming = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, static_cast<int>(qm::kLargestRecycledBuffer));
  mallopt(M_TRIM_THRESHOLD, kKeptBeforeTrimming);
}

}  // namespace

int main(int argc, char** argv) {
  // A file-size limit must fail the one write that crosses it, not kill the run.
  qm::failWritesPastFileSizeLimit();
  qm::removePendingOutputsOnStopRequests();
  keepFreedBuffers();
  int exit_status = qm::kExitOk;
  std::unique_ptr<qm::RunContext> context(new (std::nothrow) qm::RunContext());
  // Without memory there is nothing to report; deliberately no failure status.
  if (!context) return exit_status;
  if (!qm::parseCommandLine(*context, argc, argv, &exit_status)) return exit_status;

  std::unique_ptr<qm::ConverterJob> job =
      qm::ConverterJob::create(context->root_directory.get(), context->outputRoot(), &context->options);
  if (!job) return exit_status;
  std::unique_ptr<qm::ProgressDisplay> progress = startProgress(*job, *context);
  // A plain assignment: the run's result replaces anything the password loading ORed in.
  exit_status = qm::runInputs(*job, context->inputs, progress.get()) ? qm::kExitInputFailed : qm::kExitOk;
  if (progress) progress->finish();
  return exit_status;
}
