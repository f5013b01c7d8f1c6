#pragma once
// The search: a depth-first walk over (instruction, position) states that remembers every state
// it has tried. Without back-references a state's outcome does not depend on how it was reached,
// so each state is explored at most once per search (across all start positions too), and the
// work is bounded by instructions x searched bytes instead of growing exponentially.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "regex/regex_program.h"

namespace qm {

inline constexpr std::size_t kNoPosition = static_cast<std::size_t>(-1);
// Memory caps for the memo of tried states (bits) and for the backtracking stack (entries); a
// search that would need more fails cleanly. Only texts of many megabytes come near them.
inline constexpr std::uint64_t kMaxMemoBits = std::uint64_t{1} << 30;
inline constexpr std::size_t kMaxBacktrackEntries = std::size_t{1} << 23;

// Finds the first match at byte offset `from` or later and fills `slots` with two offsets per
// group (begin, end; kNoPosition for a group that took no part).
bool searchProgram(const RegexProgram& program, std::string_view text, std::size_t from,
                   std::vector<std::size_t>* slots);

}  // namespace qm
