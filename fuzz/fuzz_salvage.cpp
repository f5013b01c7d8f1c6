// Any byte string as an MDF4 image, finalized with salvaging on: the search behind damaged
// stretches, the checks beside them and the remapped references get hostile records, lengths
// and channel layouts. As for fuzz_mdf, each input is converted twice: held in memory (records
// read in place) and behind a read-ahead buffer of half its size (records read from a stream).
#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/log.h"
#include "finalize/finalize.h"
#include "finalize/finalize_hooks.h"
#include "mdf/mdf_file.h"
#include "stream/buffered_stream.h"
#include "stream/memory_stream.h"
#include "tests/support/byte_stream.h"

namespace {

std::unique_ptr<qm::MemoryStream> memoryOf(const std::uint8_t* data, std::size_t size) {
  auto memory = std::make_unique<qm::MemoryStream>();
  if (size != 0 && memory->write(data, size) != static_cast<std::int64_t>(size)) return nullptr;
  memory->seek(0, qm::kSeekSet);
  return memory;
}

void convert(qm::Stream* input) {
  std::unique_ptr<qm::MdfFile> file = qm::MdfFile::open(input, &qm::finalizeLoadHooks());
  if (file) {
    qm::LossReport report;
    qm::finalize(file.get(), &report, true);
    qm::describeLosses(report);
    qm::test::ByteStream output;
    qm::saveFinalized(file.get(), &output);
  }
  file.reset();  // the file borrows the input
  input->close();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qm::setLogThreshold(qm::kLogFatal + 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (std::unique_ptr<qm::MemoryStream> in_memory = memoryOf(data, size)) convert(in_memory.get());
  if (std::unique_ptr<qm::Stream> read_ahead = qm::BufferedStream::create(memoryOf(data, size), size / 2 + 1)) {
    convert(read_ahead.get());
  }
  return 0;
}
