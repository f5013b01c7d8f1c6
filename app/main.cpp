// quillmend: finalizes the MDF4 files that CAN/LIN bus loggers write, layer by layer.

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "app/converter_job.h"
#include "app/input_count.h"
#include "app/input_walk.h"
#include "app/progress_display.h"
#include "app/run_context.h"
#include "memory/large_buffer.h"
#include "output/pending_outputs.h"
#include "platform/console_window.h"
#include "platform/program_arguments.h"
#include "platform/stop_requests.h"
#include "platform/terminal.h"

namespace {

// Only a person at a terminal gets progress; only then are the inputs counted ahead.
std::unique_ptr<qm::ProgressDisplay> startProgress(const qm::ConverterJob& job, const qm::RunContext& context) {
  if (!qm::progressWanted(context.options)) return nullptr;
  qm::InputTotals totals = qm::countInputs(job, context.inputs);
  return std::make_unique<qm::ProgressDisplay>(qm::standardErrorHandle(), totals.files, totals.bytes);
}

int run(qm::RunContext& context, std::vector<std::string>& arguments) {
  int exit_status = qm::kExitOk;
  // The parser takes the C form; it may reorder the pointers, never the texts.
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  if (!qm::parseCommandLine(context, static_cast<int>(arguments.size()), argv.data(), &exit_status)) {
    return exit_status;
  }

  std::unique_ptr<qm::ConverterJob> job =
      qm::ConverterJob::create(context.root_directory.get(), context.outputRoot(), &context.options);
  if (!job) return exit_status;
  std::unique_ptr<qm::ProgressDisplay> progress = startProgress(*job, context);
  // A plain assignment: the run's result replaces anything the password loading ORed in.
  exit_status = qm::runInputs(*job, context.inputs, progress.get()) ? qm::kExitInputFailed : qm::kExitOk;
  if (progress) progress->finish();
  return exit_status;
}

}  // namespace

int main(int argc, char** argv) {
  // A file-size limit must fail the one write that crosses it, not kill the run.
  qm::failWritesPastFileSizeLimit();
  qm::removePendingOutputsOnStopRequests();
  qm::keepFreedBuffers();
  std::unique_ptr<qm::RunContext> context(new (std::nothrow) qm::RunContext());
  // Without memory there is nothing to report; deliberately no failure status.
  if (!context) return qm::kExitOk;
  std::vector<std::string> arguments = qm::programArguments(argc, argv);
  const int exit_status = run(*context, arguments);
  // Started in a console window of its own (files dropped on it in the Explorer), the program
  // would take its summary or its usage error away with the window.
  if (!context->options.non_interactive && qm::ownsConsoleWindowAlone()) qm::waitForEnterToClose();
  return exit_status;
}
