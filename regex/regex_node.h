#pragma once
// The tree a pattern parses into, before it is compiled to a program.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "regex/char_class.h"

namespace qm {

enum class NodeKind : std::uint8_t {
  kEmpty,
  kChar,
  kAnyChar,
  kClass,
  kLineStart,
  kLineEnd,
  kWordBoundary,
  kNotWordBoundary,
  kCapture,
  kConcat,
  kAlternate,
  kRepeat,
};

inline constexpr int kUnbounded = -1;

struct RegexNode {
  NodeKind kind = NodeKind::kEmpty;
  std::uint32_t value = 0;  // kChar: code unit; kClass: class index; kCapture: group number
  int min = 0;              // kRepeat
  int max = 0;              // kRepeat, kUnbounded for no limit
  bool greedy = true;       // kRepeat
  std::vector<RegexNode> children;
};

inline bool isAssertion(NodeKind kind) {
  return kind == NodeKind::kLineStart || kind == NodeKind::kLineEnd || kind == NodeKind::kWordBoundary ||
         kind == NodeKind::kNotWordBoundary;
}

struct ParsedPattern {
  RegexNode root;
  std::vector<CharClass> classes;
  std::size_t group_count = 0;
};

}  // namespace qm
