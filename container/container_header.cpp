#include "container/container_header.h"

#include <cstring>

#include "stream/stream_reader.h"

namespace qm {

int detectContainer(Stream* stream, ContainerHeader* header) {
  if (!stream || !header) return 0;
  streamSeek(stream, 0, kSeekSet);
  StreamReader reader(stream);
  // Every field is attempted even after a failure, as a plain sequence of reads.
  bool complete = reader.readBytes(header->signature, sizeof header->signature);
  complete &= reader.read(header->byte_a);
  complete &= reader.read(header->byte_b);
  complete &= reader.read(header->container_type);
  complete &= reader.read(header->type_version);
  complete &= reader.readU32BigEndian(header->device_id);
  if (!complete) return 0;
  return std::memcmp(header->signature, kContainerSignature, sizeof header->signature) == 0 ? 1 : 0;
}

}  // namespace qm
