// mdfgen: writes realistic unfinalized bus-logger files (optionally wrapped in containers) and
// checks MDF4 files.
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"
#include "platform/file_system.h"
#include "tools/mdfgen/byte_sink.h"
#include "tools/mdfgen/byte_source.h"
#include "tools/mdfgen/container_wrap.h"
#include "tools/mdfgen/generator_options.h"
#include "tools/mdfgen/logger_file_writer.h"
#include "tools/mdfgen/mdf_verifier.h"

namespace qm {
namespace {

int verify(const std::string& path) {
  std::unique_ptr<FileSource> source = FileSource::open(path);
  if (!source) {
    QM_LOG_E("Could not open %s", path.c_str());
    return 1;
  }
  VerifyReport report = verifyMdfFile(*source);
  std::printf("%s\n", report.file_line.c_str());
  for (const std::string& line : report.content_lines) std::printf("%s\n", line.c_str());
  for (const std::string& problem : report.problems) QM_LOG_E("%s: %s", path.c_str(), problem.c_str());
  std::printf("%s\n", report.ok() ? "ok" : "FAILED");
  return report.ok() ? 0 : 1;
}

// Written under a temporary name and renamed when complete, so an interrupted run never leaves
// a file that looks finished (the benchmark caches generated inputs by name).
bool writeOutput(const GeneratorOptions& options, const std::string& temporary) {
  if (options.containers.layers.empty()) {
    std::unique_ptr<FileSink> sink = FileSink::create(temporary);
    if (!sink) return false;
    bool ok = writeLoggerFile(options.file, *sink);
    return sink->close() && ok;
  }
  StringSink payload;
  if (!writeLoggerFile(options.file, payload) || !wrapInContainers(payload.bytes(), options.containers)) return false;
  std::unique_ptr<FileSink> sink = FileSink::create(temporary);
  if (!sink) return false;
  bool ok = sink->write(payload.bytes());
  return sink->close() && ok;
}

int generate(const GeneratorOptions& options) {
  std::string temporary = options.out + ".part";
  if (!writeOutput(options, temporary) || !renameReplacing(temporary.c_str(), options.out.c_str())) {
    QM_LOG_E("Could not write %s", options.out.c_str());
    std::remove(temporary.c_str());
    return 1;
  }
  return 0;
}

}  // namespace
}  // namespace qm

int main(int argc, char** argv) {
  qm::setLogThreshold(qm::kLogWarning);
  std::vector<std::string_view> args(argv + 1, argv + argc);
  std::optional<qm::GeneratorOptions> options = qm::parseGeneratorOptions(args);
  if (!options) {
    std::fputs(qm::generatorUsage(), stderr);
    return 2;
  }
  if (options->help) {
    std::fputs(qm::generatorUsage(), stdout);
    return 0;
  }
  if (!options->verify.empty()) return qm::verify(options->verify);
  return qm::generate(*options);
}
