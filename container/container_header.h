#pragma once
// The 20-byte header that starts every compressed or encrypted container:
// "Generic File", two bytes kept as they are, the container type and its version, and the
// device id (big-endian).
#include <cstdint>

#include "stream/stream.h"

namespace qm {

inline constexpr std::uint8_t kContainerCompressed = 34;
inline constexpr std::uint8_t kContainerEncrypted = 17;
inline constexpr std::uint8_t kContainerVersion = 1;
inline constexpr std::int64_t kContainerHeaderSize = 20;
inline constexpr char kContainerSignature[] = "Generic File";  // 12 bytes, no terminator used

struct ContainerHeader {
  char signature[12];
  std::uint32_t device_id;
  std::uint8_t byte_a, byte_b, type_version, container_type;
};

// 1 when the stream starts with a container header (read into *header), else 0. Only the
// signature is checked; the type and version are the caller's business. The stream is read
// from position 0 whatever its position was.
int detectContainer(Stream* stream, ContainerHeader* header);

}  // namespace qm
