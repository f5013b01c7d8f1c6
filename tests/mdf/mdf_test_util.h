#pragma once
// Opening built files and saving trees for the block tests.
#include <memory>
#include <string>

#include "mdf/mdf_file.h"
#include "stream/memory_stream.h"
#include "tests/support/byte_stream.h"
#include "tests/support/mdf_builder.h"

namespace qm::test {

struct OpenedFile {
  std::unique_ptr<MemoryStream> input;
  std::unique_ptr<MdfFile> file;
};

inline OpenedFile openBytes(const std::string& bytes, LoadHooks* hooks = nullptr) {
  OpenedFile opened{memoryStreamOf(bytes), nullptr};
  opened.file = MdfFile::open(opened.input.get(), hooks);
  return opened;
}

// Saves over `background` so tests can tell written bytes from never-written ones.
inline std::string saveToBytes(MdfFile& file, std::string background = {}) {
  ByteStream output(std::move(background));
  if (!file.save(&output)) return {};
  return output.bytes;
}

}  // namespace qm::test
