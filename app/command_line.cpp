#include "app/command_line.h"

#include <argtable2.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "app/conversion_pool.h"
#include "app/input_list.h"
#include "app/version.h"
#include "base/log.h"
#include "platform/file_system.h"

namespace qm {
namespace {

// Error codes of the program's own argument types.
constexpr int kErrorNoCommonRoot = 1;
constexpr int kErrorInvalidOutputDirectory = 2;

// argtable calls the check and error hooks without a user pointer; one parse runs at a time,
// so the hooks reach the run and their own verdicts through this.
struct CustomTypeState {
  RunContext* context = nullptr;
  struct arg_str* inputs = nullptr;
  struct arg_str* output_directory = nullptr;
  arg_checkfn* inputs_base_check = nullptr;
  arg_errorfn* inputs_base_error = nullptr;
  arg_checkfn* output_base_check = nullptr;
  arg_errorfn* output_base_error = nullptr;
  bool inputs_rejected = false;
  bool output_rejected = false;
};
CustomTypeState g_custom;

int checkInputList(void* parent) {
  int base = g_custom.inputs_base_check ? g_custom.inputs_base_check(parent) : 0;
  if (base != 0) return base;
  const std::string cwd = currentFolder().value_or("");
  std::vector<std::string_view> arguments;
  for (int i = 0; i < g_custom.inputs->count; ++i) arguments.emplace_back(g_custom.inputs->sval[i]);
  InputList list;
  if (!computeInputList(arguments, cwd, list)) {
    g_custom.inputs_rejected = true;
    return kErrorNoCommonRoot;
  }
  g_custom.context->common_root = std::move(list.common_root);
  g_custom.context->inputs = std::move(list.inputs);
  return 0;
}

void printInputListError(void* parent, FILE* fp, int error, const char* argval, const char* progname) {
  if (error == kErrorNoCommonRoot && g_custom.inputs_rejected) {
    std::fprintf(fp, "%s: input file(s)/folder(s) do not share a common root directory\n", progname);
  } else if (g_custom.inputs_base_error) {
    g_custom.inputs_base_error(parent, fp, error, argval, progname);
  }
}

int checkOutputDirectory(void* parent) {
  int base = g_custom.output_base_check ? g_custom.output_base_check(parent) : 0;
  if (base != 0 || g_custom.output_directory->count == 0) return base;
  // The handle only proves the folder is there; the real one is opened after parsing.
  if (!DirectoryHandle::create(g_custom.output_directory->sval[0])) {
    g_custom.output_rejected = true;
    return kErrorInvalidOutputDirectory;
  }
  return 0;
}

void printOutputDirectoryError(void* parent, FILE* fp, int error, const char* argval, const char* progname) {
  if (error == kErrorInvalidOutputDirectory && g_custom.output_rejected) {
    // argtable hands a check's error no argument text: the value is the option's own.
    const char* value = g_custom.output_directory->count > 0 ? g_custom.output_directory->sval[0] : argval;
    std::fprintf(fp, "%s: invalid output directory: \"%s\"\n", progname, value ? value : "");
  } else if (g_custom.output_base_error) {
    g_custom.output_base_error(parent, fp, error, argval, progname);
  }
}

struct ArgumentTable {
  struct arg_lit* help;
  struct arg_lit* version;
  struct arg_int* verbosity;
  struct arg_lit* non_interactive;
  struct arg_lit* delete_converted;
  struct arg_lit* no_append_root;
  struct arg_int* buffer;
  struct arg_file* password_file;
  struct arg_str* output_directory;
  struct arg_lit* input_files_doc;
  struct arg_int* jobs;
  struct arg_lit* update;
  struct arg_str* shard;
  struct arg_lit* salvage;
  struct arg_str* inputs;
  struct arg_end* end;
  std::vector<void*> entries;

  ~ArgumentTable() { arg_freetable(entries.data(), entries.size()); }
};

void buildTable(ArgumentTable& t, int argc) {
  t.help = arg_lit0(nullptr, "help", "display this help and exit");
  t.version = arg_lit0("v", "version", "display tool version and exit");
  t.verbosity = arg_int0(nullptr, "verbosity", "<n>",
                         "verbosity of logging messages from 0 to 4, with 0 being fatal messages only 4 being "
                         "all messages including debug information. defaults to 1");
  t.non_interactive = arg_lit0(nullptr, "non-interactive", "does not print any progress output");
  t.delete_converted = arg_lit0("d", "delete-converted", "deletes files after conversion if specified");
  t.no_append_root = arg_lit0("X", "no-append-root", "do not add \"_out\" when converting folders");
  t.buffer = arg_int0("b", "buffer", "<n>", "buffer size in bytes. 0 disables and -1 takes entire file");
  t.password_file = arg_file0("p", "password-file", nullptr, "where to find device passwords for encrypted files");
  t.output_directory = arg_str0("O", "output-directory", nullptr, "where to place the converted files");
  // A documentation row: it shows in the glossary how inputs are given; "-i" itself does nothing.
  t.input_files_doc =
      arg_lit0("i", "input-files=<file(s)/folder(s)>", "list of input files/folders, must have common root");
  t.jobs = arg_int0("j", "jobs", "<n>",
                    "convert up to n files at the same time, 0 = one per processor; defaults to 1");
  t.update = arg_lit0("u", "update", "convert only inputs whose output is missing or older than the input");
  t.shard = arg_str0(nullptr, "shard", "<k>/<n>", "convert only shard k (0..n-1) of n");
  t.salvage = arg_lit0(nullptr, "salvage", "recover the records behind damaged stretches of data");
  t.inputs = arg_strn(nullptr, nullptr, "file(s)/folder(s)", 1, argc > 2 ? argc - 1 : 1, nullptr);
  t.end = arg_end(20);
  void* all[] = {t.help,          t.version,          t.verbosity,       t.non_interactive,
                 t.delete_converted, t.no_append_root, t.buffer,        t.password_file,
                 t.output_directory, t.input_files_doc, t.jobs,         t.update,
                 t.shard,            t.salvage,        t.inputs,        t.end};
  for (void* entry : all) t.entries.push_back(entry);
}

void installCustomTypes(ArgumentTable& t, RunContext& context) {
  g_custom = CustomTypeState{};
  g_custom.context = &context;
  g_custom.inputs = t.inputs;
  g_custom.output_directory = t.output_directory;
  g_custom.inputs_base_check = t.inputs->hdr.checkfn;
  g_custom.inputs_base_error = t.inputs->hdr.errorfn;
  g_custom.output_base_check = t.output_directory->hdr.checkfn;
  g_custom.output_base_error = t.output_directory->hdr.errorfn;
  t.inputs->hdr.checkfn = checkInputList;
  t.inputs->hdr.errorfn = printInputListError;
  t.output_directory->hdr.checkfn = checkOutputDirectory;
  t.output_directory->hdr.errorfn = printOutputDirectoryError;
}

void printUsage(ArgumentTable& t) {
  std::printf("Usage: %s", kToolName);
  arg_print_syntax(stdout, t.entries.data(), "\n\n");
  arg_print_glossary(stdout, t.entries.data(), "  %-40s %s\n");
}

bool isTableEntry(const ArgumentTable& t, const void* owner) {
  for (void* entry : t.entries) {
    if (entry == owner) return true;
  }
  return false;
}

// Status for the first parse error. An unknown option, an unexpected argument or a bad number
// is plain misuse (131). argtable2 reports an unknown long option as ARG_ELONGOPT and an unknown
// short option by the option character itself, both owned by the end marker.
int statusForParseError(ArgumentTable& t) {
  int code = t.end->error[0];
  const void* owner = t.end->parent[0];
  bool unknown_option = owner == t.end && (code == ARG_ELONGOPT || code > ARG_EMISSARG);
  if ((code == ARG_ENOMATCH && isTableEntry(t, owner)) || unknown_option) return kExitBadOption;
  if (code == ARG_EMISSARG) return kExitMissingValue;
  arg_print_errors(stdout, t.end, kToolName);
  return kExitUsageError;
}

void copyOptions(const ArgumentTable& t, ConversionOptions& options) {
  options.delete_converted = t.delete_converted->count == 1;
  options.no_append_root = t.no_append_root->count == 1;
  options.non_interactive = t.non_interactive->count == 1;
  options.buffer_size = t.buffer->count > 0 ? static_cast<std::int64_t>(t.buffer->ival[0]) : -1;
  if (t.output_directory->count > 0) options.output_directory = SmallString(t.output_directory->sval[0]);
  options.jobs = t.jobs->count > 0 ? t.jobs->ival[0] : 1;
  options.memory_budget = defaultMemoryBudget();
  options.update = t.update->count == 1;
  if (t.shard->count > 0) options.shard = *parseShard(t.shard->sval[0]);
  options.salvage = t.salvage->count == 1;
}

// Values argtable cannot check itself; a bad one is misuse, like a number that does not parse.
bool newOptionValuesValid(const ArgumentTable& t) {
  if (t.jobs->count > 0 && t.jobs->ival[0] < 0) return false;
  return t.shard->count == 0 || parseShard(t.shard->sval[0]).has_value();
}

bool openDirectories(RunContext& context) {
  context.root_directory = DirectoryHandle::create(context.common_root.view());
  if (!context.root_directory) return false;
  if (context.options.output_directory.empty()) return true;
  context.output_directory_handle = DirectoryHandle::create(context.options.output_directory.view());
  return context.output_directory_handle != nullptr;
}

}  // namespace

int thresholdForVerbosity(int verbosity) {
  static const int kThresholds[] = {kLogFatal, kLogError, kLogWarning, kLogInfo, kLogVerbose, kLogVerbose};
  return verbosity >= 0 && verbosity <= 5 ? kThresholds[verbosity] : -1;
}

bool parseCommandLine(RunContext& context, int argc, char** argv, int* exit_status) {
  ArgumentTable table;
  buildTable(table, argc);
  if (arg_nullcheck(table.entries.data()) != 0) {
    *exit_status = kExitNoMemory;
    return false;
  }
  installCustomTypes(table, context);
  int errors = arg_parse(argc, argv, table.entries.data());
  // Known whatever the outcome: a run that stops at a usage error asks no questions either.
  context.options.non_interactive = table.non_interactive->count == 1;

  if (table.help->count > 0 || argc == 1) {
    printUsage(table);
    return false;
  }
  if (table.version->count > 0) {
    std::printf("Version: %s\n", kToolVersion);
    *exit_status = kExitOk;
    return false;
  }
  if (errors != 0) {
    *exit_status = kExitParseFailed;
    *exit_status = statusForParseError(table);
    return false;
  }

  int threshold = kLogError;
  if (table.verbosity->count > 0) {
    threshold = thresholdForVerbosity(table.verbosity->ival[0]);
    if (threshold < 0) {
      *exit_status = kExitBadOption;
      return false;
    }
  }
  if (!newOptionValuesValid(table)) {
    *exit_status = kExitBadOption;
    return false;
  }
  setLogThreshold(threshold);

  copyOptions(table, context.options);
  loadPasswordFile(table.password_file->count > 0 ? table.password_file->filename[0] : nullptr, exit_status,
                   context.options.password_store);
  return openDirectories(context);
}

}  // namespace qm
