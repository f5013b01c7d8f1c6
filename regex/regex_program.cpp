#include "regex/regex_program.h"

#include <utility>

#include "regex/case_folding.h"

namespace qm {
namespace {

class ProgramBuilder {
 public:
  explicit ProgramBuilder(RegexProgram* program) : program_(program) {}

  // False when the program grows past its limit.
  bool emit(const RegexNode& node) {
    if (tooLarge()) return false;
    switch (node.kind) {
      case NodeKind::kEmpty:
        return true;
      case NodeKind::kChar:
        add(Opcode::kChar, program_->ignore_case ? toLowerCase(node.value) : node.value);
        return true;
      case NodeKind::kAnyChar:
        add(Opcode::kAnyChar);
        return true;
      case NodeKind::kClass:
        add(Opcode::kClass, node.value);
        return true;
      case NodeKind::kLineStart:
        add(Opcode::kLineStart);
        return true;
      case NodeKind::kLineEnd:
        add(Opcode::kLineEnd);
        return true;
      case NodeKind::kWordBoundary:
        add(Opcode::kWordBoundary);
        return true;
      case NodeKind::kNotWordBoundary:
        add(Opcode::kNotWordBoundary);
        return true;
      case NodeKind::kCapture:
        return emitCapture(node);
      case NodeKind::kConcat:
        for (const RegexNode& child : node.children) {
          if (!emit(child)) return false;
        }
        return true;
      case NodeKind::kAlternate:
        return emitAlternate(node);
      case NodeKind::kRepeat:
        return emitRepeat(node);
    }
    return false;
  }

  std::uint32_t add(Opcode op, std::uint32_t arg = 0, std::uint32_t alt = 0) {
    program_->instructions.push_back({op, arg, alt});
    return here() - 1;
  }

 private:
  std::uint32_t here() const { return static_cast<std::uint32_t>(program_->instructions.size()); }
  Instruction& at(std::uint32_t index) { return program_->instructions[index]; }
  bool tooLarge() const { return program_->instructions.size() > kMaxInstructions; }

  bool emitCapture(const RegexNode& node) {
    add(Opcode::kSave, 2 * node.value);
    if (!emit(node.children.front())) return false;
    add(Opcode::kSave, 2 * node.value + 1);
    return true;
  }

  // split L1, next; L1: first; jump end; next: split L2, ... ; last; end:
  bool emitAlternate(const RegexNode& node) {
    std::vector<std::uint32_t> jumps_to_end;
    for (std::size_t i = 0; i + 1 < node.children.size(); ++i) {
      std::uint32_t split = add(Opcode::kSplit);
      at(split).arg = here();
      if (!emit(node.children[i])) return false;
      jumps_to_end.push_back(add(Opcode::kJump));
      at(split).alt = here();
    }
    if (!emit(node.children.back())) return false;
    for (std::uint32_t jump : jumps_to_end) at(jump).arg = here();
    return true;
  }

  bool emitRepeat(const RegexNode& node) {
    const RegexNode& body = node.children.front();
    for (int i = 0; i < node.min; ++i) {
      if (!emit(body)) return false;
    }
    if (node.max == kUnbounded) return emitStar(body, node.greedy);
    // Each optional copy: split copy, end; copy; ... end:
    std::vector<std::uint32_t> splits;
    for (int i = node.min; i < node.max; ++i) {
      splits.push_back(add(Opcode::kSplit));
      if (!emit(body)) return false;
    }
    for (std::uint32_t split : splits) setBranches(split, split + 1, here(), node.greedy);
    return true;
  }

  // loop: split body, exit; body; jump loop; exit:
  bool emitStar(const RegexNode& body, bool greedy) {
    std::uint32_t loop = add(Opcode::kSplit);
    if (!emit(body)) return false;
    add(Opcode::kJump, loop);
    setBranches(loop, loop + 1, here(), greedy);
    return true;
  }

  // A greedy split prefers the body, a lazy one the exit.
  void setBranches(std::uint32_t split, std::uint32_t body, std::uint32_t exit, bool greedy) {
    at(split).arg = greedy ? body : exit;
    at(split).alt = greedy ? exit : body;
  }

  RegexProgram* program_;
};

bool beginsWithLineStart(const RegexNode& root) {
  if (root.kind == NodeKind::kLineStart) return true;
  return root.kind == NodeKind::kConcat && root.children.front().kind == NodeKind::kLineStart;
}

}  // namespace

std::optional<RegexProgram> compileProgram(ParsedPattern pattern, bool ignore_case, bool multi_line) {
  RegexProgram program;
  program.classes = std::move(pattern.classes);
  program.group_count = pattern.group_count;
  program.ignore_case = ignore_case;
  program.multi_line = multi_line;
  program.starts_with_line_start = beginsWithLineStart(pattern.root);
  ProgramBuilder builder(&program);
  builder.add(Opcode::kSave, 0);
  if (!builder.emit(pattern.root)) return std::nullopt;
  builder.add(Opcode::kSave, 1);
  builder.add(Opcode::kMatch);
  if (program.instructions.size() > kMaxInstructions) return std::nullopt;
  return program;
}

}  // namespace qm
