#include "container/key_derivation_rounds.h"

#include "container/container_header.h"
#include "container/encrypted_stream.h"
#include "stream/stream_reader.h"

namespace qm {

bool readKeyDerivationRounds(Stream* container, std::uint32_t* rounds) {
  std::int64_t position = 0;
  if (!rounds || !getPosition(container, &position)) return false;
  bool read = setPosition(container, static_cast<std::int64_t>(kContainerHeaderSize + kEncryptedNonceSize));
  if (read) {
    StreamReader reader(container);
    read = reader.readU32BigEndian(*rounds);
  }
  setPosition(container, position);
  return read;
}

}  // namespace qm
