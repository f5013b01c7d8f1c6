// Any byte string as a container stack: peel compressed and encrypted layers (with one fixed
// password) as the conversion does, then read what is left to its end.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/log.h"
#include "container/compressed_stream.h"
#include "container/container_header.h"
#include "container/encrypted_stream.h"
#include "stream/memory_stream.h"

namespace {

constexpr const char* kPassword = "fuzz-password";
// Enough to reach nested layers; a bound keeps one input from running without end.
constexpr int kMaxLayers = 8;
// The key derivation runs as many rounds as the container asks for, by design; a mutated count
// of billions would only measure the hash function, so such containers are not opened here.
constexpr std::uint32_t kMaxIterations = 64;

std::uint32_t storedIterations(qm::Stream* stream) {
  std::uint8_t bytes[4] = {};
  stream->seek(32, qm::kSeekSet);
  if (stream->read(bytes, sizeof bytes) != 4) return 0;
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

std::unique_ptr<qm::Stream> peelOneLayer(std::unique_ptr<qm::Stream> current,
                                         const qm::ContainerHeader& header) {
  if (header.container_type == qm::kContainerCompressed) {
    return qm::openCompressed(std::move(current), header);
  }
  if (header.container_type == qm::kContainerEncrypted) {
    if (storedIterations(current.get()) > kMaxIterations) {
      current->close();
      return nullptr;
    }
    return qm::openEncrypted(std::move(current), header, kPassword);
  }
  current->close();
  return nullptr;
}

void readToEnd(qm::Stream* stream) {
  stream->seek(0, qm::kSeekSet);
  std::uint8_t buffer[4096];
  while (stream->read(buffer, sizeof buffer) > 0) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qm::setLogThreshold(qm::kLogFatal + 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto input = std::make_unique<qm::MemoryStream>();
  if (size != 0 && input->write(data, size) != static_cast<std::int64_t>(size)) return 0;
  std::unique_ptr<qm::Stream> current = std::move(input);

  qm::ContainerHeader header{};
  for (int layer = 0; layer < kMaxLayers && qm::detectContainer(current.get(), &header) == 1; ++layer) {
    current = peelOneLayer(std::move(current), header);
    if (!current) return 0;
  }
  readToEnd(current.get());
  current->close();
  return 0;
}
