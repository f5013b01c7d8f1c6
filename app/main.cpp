// quillmend: finalizes the MDF4 files that CAN/LIN bus loggers write, layer by layer.
#include <csignal>
#include <memory>
#include <new>

#include "app/command_line.h"
#include "app/converter_job.h"
#include "app/input_walk.h"
#include "app/run_context.h"

int main(int argc, char** argv) {
  // A file-size limit must fail the one write that crosses it, not kill the run.
  std::signal(SIGXFSZ, SIG_IGN);
  int exit_status = qm::kExitOk;
  std::unique_ptr<qm::RunContext> context(new (std::nothrow) qm::RunContext());
  // Without memory there is nothing to report; deliberately no failure status.
  if (!context) return exit_status;
  if (!qm::parseCommandLine(*context, argc, argv, &exit_status)) return exit_status;

  std::unique_ptr<qm::ConverterJob> job =
      qm::ConverterJob::create(context->root_directory.get(), context->outputRoot(), &context->options);
  if (!job) return exit_status;
  // A plain assignment: the run's result replaces anything the password loading ORed in.
  exit_status = qm::runInputs(*job, context->inputs) ? qm::kExitInputFailed : qm::kExitOk;
  return exit_status;
}
