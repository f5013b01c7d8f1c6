#include "platform/secret.h"

#include <windows.h>

namespace qm {

void wipeSecret(void* data, std::size_t size) { SecureZeroMemory(data, size); }

}  // namespace qm
