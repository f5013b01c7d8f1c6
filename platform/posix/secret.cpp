#include "platform/secret.h"

#include <string.h>

namespace qm {

void wipeSecret(void* data, std::size_t size) { explicit_bzero(data, size); }

}  // namespace qm
