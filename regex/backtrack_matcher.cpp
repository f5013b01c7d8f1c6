#include "regex/backtrack_matcher.h"

#include <algorithm>

#include "regex/case_folding.h"
#include "regex/utf8_decoder.h"

namespace qm {
namespace {

bool isWordByte(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// A pending alternative to explore, or a capture slot to restore when backtracking past it.
struct Job {
  std::size_t position;
  std::uint32_t index;  // instruction, or capture slot for a restore
  bool restore;
};

class BacktrackMatcher {
 public:
  BacktrackMatcher(const RegexProgram& program, std::string_view text, std::size_t from)
      : program_(program), text_(text), from_(from), width_(program.instructions.size()) {}

  bool search(std::vector<std::size_t>* slots) {
    slots_.assign(2 * (program_.group_count + 1), kNoPosition);
    std::size_t start = from_;
    while (start <= text_.size()) {
      if (program_.starts_with_line_start && !atLineStart(start)) {
        // Only a line start can begin a match: skip to the next one.
        std::size_t newline = program_.multi_line ? text_.find('\n', start) : std::string_view::npos;
        if (newline == std::string_view::npos) return false;
        start = newline + 1;
        continue;
      }
      if (tryAt(start)) {
        *slots = slots_;
        return true;
      }
      if (exhausted_) return false;
      start += start < text_.size() ? decodeUtf8(text_, start).length : 1;
    }
    return false;
  }

 private:
  bool tryAt(std::size_t start) {
    stack_.clear();
    stack_.push_back({start, 0, false});
    while (!stack_.empty()) {
      Job job = stack_.back();
      stack_.pop_back();
      if (job.restore) {
        slots_[job.index] = job.position;
      } else if (run(job.index, job.position)) {
        return true;
      } else if (exhausted_) {
        return false;
      }
    }
    return false;
  }

  // Follows one path until it matches or fails, leaving alternatives on the stack.
  bool run(std::uint32_t pc, std::size_t pos) {
    for (;;) {
      if (!markTried(pc, pos)) return false;
      const Instruction& instruction = program_.instructions[pc];
      switch (instruction.op) {
        case Opcode::kChar:
        case Opcode::kAnyChar:
        case Opcode::kClass: {
          if (pos >= text_.size()) return false;
          DecodedChar decoded = decodeUtf8(text_, pos);
          if (!consumes(instruction, decoded.code, pos)) return false;
          pos += decoded.length;
          ++pc;
          break;
        }
        case Opcode::kSplit:
          if (!wasTried(instruction.alt, pos) && !push({pos, instruction.alt, false})) return false;
          pc = instruction.arg;
          break;
        case Opcode::kJump:
          pc = instruction.arg;
          break;
        case Opcode::kSave:
          if (!push({slots_[instruction.arg], instruction.arg, true})) return false;
          slots_[instruction.arg] = pos;
          ++pc;
          break;
        case Opcode::kLineStart:
        case Opcode::kLineEnd:
        case Opcode::kWordBoundary:
        case Opcode::kNotWordBoundary:
          if (!holds(instruction.op, pos)) return false;
          ++pc;
          break;
        case Opcode::kMatch:
          return true;
      }
    }
  }

  bool consumes(const Instruction& instruction, std::uint32_t code, std::size_t pos) const {
    switch (instruction.op) {
      case Opcode::kChar:
        return (program_.ignore_case ? toLowerCase(code) : code) == instruction.arg;
      case Opcode::kAnyChar:
        return code != '\n' && !(code == '\r' && isNewlineAt(pos + 1));
      case Opcode::kClass:
        return program_.classes[instruction.arg].matches(code, program_.ignore_case);
      default:
        return false;
    }
  }

  bool holds(Opcode assertion, std::size_t pos) const {
    switch (assertion) {
      case Opcode::kLineStart:
        return atLineStart(pos);
      case Opcode::kLineEnd:
        return atLineEnd(pos);
      case Opcode::kWordBoundary:
        return wordBefore(pos) != wordAt(pos);
      case Opcode::kNotWordBoundary:
        return wordBefore(pos) == wordAt(pos);
      default:
        return false;
    }
  }

  bool isNewlineAt(std::size_t pos) const { return pos < text_.size() && text_[pos] == '\n'; }
  bool wordBefore(std::size_t pos) const { return pos > 0 && isWordByte(text_[pos - 1]); }
  bool wordAt(std::size_t pos) const { return pos < text_.size() && isWordByte(text_[pos]); }

  bool atLineStart(std::size_t pos) const {
    return pos == 0 || (program_.multi_line && text_[pos - 1] == '\n');
  }

  // "\r\n" ends a line as a whole, so `$` also holds before its "\r".
  bool atLineEnd(std::size_t pos) const {
    if (pos == text_.size()) return true;
    if (!program_.multi_line) return false;
    return isNewlineAt(pos) || (text_[pos] == '\r' && isNewlineAt(pos + 1));
  }

  std::uint64_t stateBit(std::uint32_t pc, std::size_t pos) const {
    return static_cast<std::uint64_t>(pos - from_) * width_ + pc;
  }

  bool wasTried(std::uint32_t pc, std::size_t pos) const {
    std::uint64_t bit = stateBit(pc, pos);
    return bit / 64 < memo_.size() && (memo_[bit / 64] >> (bit % 64)) & 1;
  }

  // Marks the state as tried; false when it already was or the memo is out of budget.
  bool markTried(std::uint32_t pc, std::size_t pos) {
    std::uint64_t bit = stateBit(pc, pos);
    std::size_t word = static_cast<std::size_t>(bit / 64);
    if (word >= memo_.size() && !growMemo(word + 1)) return false;
    std::uint64_t mask = std::uint64_t{1} << (bit % 64);
    if (memo_[word] & mask) return false;
    memo_[word] |= mask;
    return true;
  }

  bool growMemo(std::size_t words) {
    constexpr std::size_t kMaxWords = kMaxMemoBits / 64;
    if (words > kMaxWords) {
      exhausted_ = true;
      return false;
    }
    if (words > memo_.capacity()) memo_.reserve(std::min(std::max(words, memo_.capacity() * 2), kMaxWords));
    memo_.resize(words, 0);
    return true;
  }

  bool push(const Job& job) {
    if (stack_.size() >= kMaxBacktrackEntries) {
      exhausted_ = true;
      return false;
    }
    stack_.push_back(job);
    return true;
  }

  const RegexProgram& program_;
  std::string_view text_;
  std::size_t from_;
  std::size_t width_;  // instructions per position in the memo
  std::vector<std::uint64_t> memo_;
  std::vector<Job> stack_;
  std::vector<std::size_t> slots_;
  bool exhausted_ = false;
};

}  // namespace

bool searchProgram(const RegexProgram& program, std::string_view text, std::size_t from,
                   std::vector<std::size_t>* slots) {
  if (from > text.size()) return false;
  return BacktrackMatcher(program, text, from).search(slots);
}

}  // namespace qm
