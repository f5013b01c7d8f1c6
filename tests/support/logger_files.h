#pragma once
// Small unfinalized logger files for command-line tests: two channel groups (ids 1 and 2) whose
// records lie interleaved in one data block whose length the logger never wrote. Different seeds
// give different values, so outputs of different inputs differ.
#include <cstdint>
#include <string>

namespace qm::test {

std::string twoGroupLoggerFile(std::uint16_t seed, int records = 40);

}  // namespace qm::test
