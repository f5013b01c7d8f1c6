// Any byte string as an MDF4 image: open it, finalize it and write it out, all in memory. Each
// input is converted twice: held in memory, so that records are sorted in place and gathered
// while the output is written, and behind a read-ahead buffer of half its size, so that reads
// and seeks cross refills and records are copied, as with a --buffer smaller than the file.
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
    qm::finalize(file.get());
    // The writer places children behind their parents before the parents are written, so the
    // output must accept seeks past its end, as a file does.
    qm::test::ByteStream output;
    qm::saveFinalized(file.get(), &output);
  }
  file.reset();  // the file borrows the input
  input->close();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Messages would only slow the run down; the sanitizers report what matters.
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
