#pragma once
// The number of key-derivation rounds an encrypted container asks for, read before any
// derivation: the count comes from the file, and one hostile file could otherwise keep the
// program busy for hours. Real loggers use far fewer rounds than the limit.
#include <cstdint>

#include "stream/stream.h"

namespace qm {

inline constexpr std::uint32_t kMaxKeyDerivationRounds = 10'000'000;

// Reads the stored count of the encrypted container that `container` starts with; false when
// the stream is too short to hold it. The position is left where it was.
bool readKeyDerivationRounds(Stream* container, std::uint32_t* rounds);

}  // namespace qm
