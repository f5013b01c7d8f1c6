// Any byte string as the content of a password file.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "app/password_store.h"
#include "base/log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qm::setLogThreshold(qm::kLogFatal + 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qm::PasswordStore store;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  qm::parsePasswordText(text, store);
  // Lookups walk the probe chains the insertions built.
  store.findForDevice(0x1A2B3C4Du);
  return 0;
}
