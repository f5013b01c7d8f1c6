#include "tools/mdfgen/container_wrap.h"

#include "tests/support/container_writer.h"

namespace qm {

bool wrapInContainers(std::string& bytes, const ContainerSettings& settings) {
  for (ContainerLayer layer : settings.layers) {
    std::string wrapped;
    if (layer == ContainerLayer::kCompress) {
      wrapped = test::makeCompressedContainer(bytes, settings.device_id, settings.window_bits, settings.lookahead_bits);
    } else {
      wrapped = test::makeEncryptedContainer(bytes, settings.device_id, settings.password, settings.iterations, settings.seed);
      if (wrapped.empty()) return false;
    }
    bytes = std::move(wrapped);
  }
  return true;
}

}  // namespace qm
