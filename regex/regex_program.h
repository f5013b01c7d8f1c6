#pragma once
// The compiled form of a pattern: a list of instructions for the backtracking matcher.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "regex/char_class.h"
#include "regex/regex_node.h"

namespace qm {

enum class Opcode : std::uint8_t {
  kChar,       // arg: code unit (lower-cased when ignoring case)
  kAnyChar,
  kClass,      // arg: class index
  kSplit,      // try arg first, then alt
  kJump,       // arg: target
  kSave,       // arg: capture slot (2 * group for the begin, + 1 for the end)
  kLineStart,
  kLineEnd,
  kWordBoundary,
  kNotWordBoundary,
  kMatch,
};

struct Instruction {
  Opcode op = Opcode::kMatch;
  std::uint32_t arg = 0;
  std::uint32_t alt = 0;
};

// Larger programs are refused; {m,n} copies its operand, so nesting could multiply the size.
inline constexpr std::size_t kMaxInstructions = 1 << 16;

struct RegexProgram {
  std::vector<Instruction> instructions;
  std::vector<CharClass> classes;
  std::size_t group_count = 0;
  bool ignore_case = false;
  bool multi_line = false;
  // The pattern begins with '^', so only line starts (or the text start) can begin a match.
  bool starts_with_line_start = false;
};

std::optional<RegexProgram> compileProgram(ParsedPattern pattern, bool ignore_case, bool multi_line);

}  // namespace qm
