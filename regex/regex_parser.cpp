#include "regex/regex_parser.h"

#include <utility>

#include "regex/utf8_decoder.h"

namespace qm {
namespace {

// What a backslash escape stands for: one character, a set of characters, or a boundary test.
struct Escape {
  enum class Kind { kChar, kSet, kWordBoundary, kNotWordBoundary };
  Kind kind = Kind::kChar;
  std::uint32_t code = 0;
  CharClass set;          // kSet: the positive class
  bool negated = false;   // kSet: \D \S \W \P{..}
};

bool isQuantifierStart(char c) { return c == '*' || c == '+' || c == '?' || c == '{'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isAsciiAlnum(char c) { return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

class PatternParser {
 public:
  explicit PatternParser(std::string_view pattern) : pattern_(pattern) {}

  std::optional<ParsedPattern> parse() {
    RegexNode root;
    // The top level stops early only at a ')' that closes nothing.
    if (!parseAlternation(&root, 0) || !atEnd()) return std::nullopt;
    result_.root = std::move(root);
    return std::move(result_);
  }

 private:
  bool atEnd() const { return pos_ >= pattern_.size(); }
  char peek() const { return pattern_[pos_]; }
  bool lookingAt(std::string_view text) const { return pattern_.substr(pos_).starts_with(text); }
  bool take(char c) {
    if (atEnd() || peek() != c) return false;
    ++pos_;
    return true;
  }
  std::uint32_t takeCharacter() {
    DecodedChar decoded = decodeUtf8(pattern_, pos_);
    pos_ += decoded.length;
    return decoded.code;
  }
  std::uint32_t addClass(CharClass set) {
    result_.classes.push_back(std::move(set));
    return static_cast<std::uint32_t>(result_.classes.size() - 1);
  }

  bool parseAlternation(RegexNode* out, int depth) {
    RegexNode first;
    if (!parseSequence(&first, depth)) return false;
    if (atEnd() || peek() != '|') {
      *out = std::move(first);
      return true;
    }
    RegexNode alternate;
    alternate.kind = NodeKind::kAlternate;
    alternate.children.push_back(std::move(first));
    while (take('|')) {
      RegexNode next;
      if (!parseSequence(&next, depth)) return false;
      alternate.children.push_back(std::move(next));
    }
    *out = std::move(alternate);
    return true;
  }

  bool parseSequence(RegexNode* out, int depth) {
    RegexNode sequence;
    sequence.kind = NodeKind::kConcat;
    while (!atEnd() && peek() != '|' && peek() != ')') {
      RegexNode term;
      if (!parseTerm(&term, depth)) return false;
      sequence.children.push_back(std::move(term));
    }
    if (sequence.children.size() == 1) {
      RegexNode only = std::move(sequence.children.front());
      *out = std::move(only);
    } else if (sequence.children.empty()) {
      *out = RegexNode{};
    } else {
      *out = std::move(sequence);
    }
    return true;
  }

  bool parseTerm(RegexNode* out, int depth) {
    if (!parseAtom(out, depth)) return false;
    if (atEnd() || !isQuantifierStart(peek())) return true;
    if (isAssertion(out->kind)) return false;
    RegexNode repeat;
    repeat.kind = NodeKind::kRepeat;
    if (!parseQuantifier(&repeat.min, &repeat.max)) return false;
    repeat.greedy = !take('?');
    if (!atEnd() && isQuantifierStart(peek())) return false;  // a** or a{2}{3}
    repeat.children.push_back(std::move(*out));
    *out = std::move(repeat);
    return true;
  }

  bool parseQuantifier(int* min, int* max) {
    char c = pattern_[pos_++];
    if (c != '{') {
      *min = c == '+' ? 1 : 0;
      *max = c == '?' ? 1 : kUnbounded;
      return true;
    }
    if (!parseCount(min)) return false;
    if (take('}')) {
      *max = *min;
      return true;
    }
    if (!take(',')) return false;
    if (take('}')) {
      *max = kUnbounded;
      return true;
    }
    return parseCount(max) && take('}') && *min <= *max;
  }

  bool parseCount(int* count) {
    std::size_t start = pos_;
    int value = 0;
    for (; !atEnd() && isDigit(peek()); ++pos_) {
      value = value * 10 + (peek() - '0');
      if (value > kMaxRepeatCount) return false;
    }
    *count = value;
    return pos_ > start;
  }

  bool parseAtom(RegexNode* out, int depth) {
    switch (peek()) {
      case '(':
        return parseGroup(out, depth);
      case '[':
        return parseBracket(out);
      case '\\':
        return parseEscapeAtom(out);
      case '.':
        return takeSimple(NodeKind::kAnyChar, out);
      case '^':
        return takeSimple(NodeKind::kLineStart, out);
      case '$':
        return takeSimple(NodeKind::kLineEnd, out);
      case '*':
      case '+':
      case '?':
      case '{':  // a quantifier with nothing to repeat
      case ']':
      case '}':  // closes what was never opened
        return false;
      default:
        out->kind = NodeKind::kChar;
        out->value = takeCharacter();
        return true;
    }
  }

  bool takeSimple(NodeKind kind, RegexNode* out) {
    ++pos_;
    out->kind = kind;
    return true;
  }

  bool parseGroup(RegexNode* out, int depth) {
    if (depth >= kMaxGroupNesting) return false;
    ++pos_;
    bool capturing = true;
    if (take('?')) {
      if (!take(':')) return false;  // lookarounds, inline flags and named groups are not offered
      capturing = false;
    }
    // Groups are numbered by their opening parenthesis, left to right.
    std::uint32_t group = capturing ? static_cast<std::uint32_t>(++result_.group_count) : 0;
    RegexNode inner;
    if (!parseAlternation(&inner, depth + 1) || !take(')')) return false;
    if (!capturing) {
      *out = std::move(inner);
      return true;
    }
    out->kind = NodeKind::kCapture;
    out->value = group;
    out->children.push_back(std::move(inner));
    return true;
  }

  bool parseEscapeAtom(RegexNode* out) {
    Escape escape;
    if (!parseEscape(false, &escape)) return false;
    switch (escape.kind) {
      case Escape::Kind::kChar:
        out->kind = NodeKind::kChar;
        out->value = escape.code;
        break;
      case Escape::Kind::kSet:
        if (escape.negated) escape.set.negate();
        out->kind = NodeKind::kClass;
        out->value = addClass(std::move(escape.set));
        break;
      case Escape::Kind::kWordBoundary:
        out->kind = NodeKind::kWordBoundary;
        break;
      case Escape::Kind::kNotWordBoundary:
        out->kind = NodeKind::kNotWordBoundary;
        break;
    }
    return true;
  }

  // Starts at the backslash. Letters and digits without a meaning are refused (they are likely
  // typos or back-references, which are not offered); any other character stands for itself.
  bool parseEscape(bool in_class, Escape* out) {
    ++pos_;
    if (atEnd()) return false;
    char c = peek();
    if (!isAsciiAlnum(c)) {
      out->code = takeCharacter();
      return true;
    }
    ++pos_;
    switch (c) {
      case 'd':
      case 'D':
        return namedSet("digit", c == 'D', out);
      case 's':
      case 'S':
        return namedSet("space", c == 'S', out);
      case 'w':
      case 'W':
        return namedSet("word", c == 'W', out);
      case 'p':
      case 'P':
        return parseProperty(c == 'P', out);
      case 'b':
        if (in_class) return setCode(0x08, out);
        out->kind = Escape::Kind::kWordBoundary;
        return true;
      case 'B':
        out->kind = Escape::Kind::kNotWordBoundary;
        return !in_class;
      case 't':
        return setCode('\t', out);
      case 'n':
        return setCode('\n', out);
      case 'r':
        return setCode('\r', out);
      case 'f':
        return setCode('\f', out);
      case 'v':
        return setCode('\v', out);
      case 'a':
        return setCode(0x07, out);
      case 'e':
        return setCode(0x1B, out);
      case '0':
        return setCode(0, out);
      case 'x':
        return take('{') ? parseBracedHex(out) : parseFixedHex(2, out);
      case 'u':
        return parseFixedHex(4, out);
      default:
        return false;
    }
  }

  bool namedSet(std::string_view name, bool negated, Escape* out) {
    out->kind = Escape::Kind::kSet;
    out->negated = negated;
    return findNamedClass(name, &out->set);
  }

  bool parseProperty(bool negated, Escape* out) {
    if (!take('{')) return false;
    std::size_t close = pattern_.find('}', pos_);
    if (close == std::string_view::npos) return false;
    std::string_view name = pattern_.substr(pos_, close - pos_);
    pos_ = close + 1;
    return namedSet(name, negated, out);
  }

  bool parseBracedHex(Escape* out) {
    std::uint32_t code = 0;
    int digits = 0;
    for (; !atEnd() && hexValue(peek()) >= 0; ++pos_) {
      if (++digits > 6) return false;
      code = code * 16 + static_cast<std::uint32_t>(hexValue(peek()));
    }
    return digits > 0 && take('}') && setCode(code, out);
  }

  bool parseFixedHex(int digits, Escape* out) {
    std::uint32_t code = 0;
    for (int i = 0; i < digits; ++i, ++pos_) {
      if (atEnd() || hexValue(peek()) < 0) return false;
      code = code * 16 + static_cast<std::uint32_t>(hexValue(peek()));
    }
    return setCode(code, out);
  }

  static bool setCode(std::uint32_t code, Escape* out) {
    out->kind = Escape::Kind::kChar;
    out->code = code;
    return code <= 0x10FFFF && !(code >= 0xD800 && code <= 0xDFFF);
  }

  // A ']' right after the opening '[' or '[^' is a literal, as in POSIX brackets.
  bool parseBracket(RegexNode* out) {
    ++pos_;
    CharClass set;
    bool negated = take('^');
    for (bool first = true;; first = false) {
      if (atEnd()) return false;
      if (!first && take(']')) break;
      if (!parseBracketItem(&set)) return false;
    }
    if (negated) set.negate();
    out->kind = NodeKind::kClass;
    out->value = addClass(std::move(set));
    return true;
  }

  bool parseBracketItem(CharClass* set) {
    if (lookingAt("[:")) return parsePosixClass(set);
    Escape low;
    if (!parseClassMember(&low)) return false;
    // A '-' just before the closing ']' is a literal.
    bool range = lookingAt("-") && pos_ + 1 < pattern_.size() && pattern_[pos_ + 1] != ']';
    if (low.kind == Escape::Kind::kSet) {
      if (range) return false;  // a class cannot bound a range
      addEscapeSet(low, set);
      return true;
    }
    if (!range) {
      set->add(low.code);
      return true;
    }
    ++pos_;
    Escape high;
    if (!parseClassMember(&high) || high.kind != Escape::Kind::kChar || high.code < low.code) return false;
    set->add(low.code, high.code);
    return true;
  }

  bool parseClassMember(Escape* out) {
    if (peek() == '\\') return parseEscape(true, out);
    out->kind = Escape::Kind::kChar;
    out->code = takeCharacter();
    return true;
  }

  static void addEscapeSet(const Escape& escape, CharClass* set) {
    if (!escape.negated) {
      set->add(escape.set);
      return;
    }
    CharClass complement = escape.set;
    complement.complementRanges();
    set->add(complement);
  }

  // "[:name:]" or "[:^name:]"; a "[:" without its ":]" before the next ']' is refused.
  bool parsePosixClass(CharClass* set) {
    std::size_t close = pattern_.find(":]", pos_ + 2);
    if (close == std::string_view::npos || pattern_.find(']', pos_ + 2) != close + 1) return false;
    std::string_view name = pattern_.substr(pos_ + 2, close - pos_ - 2);
    pos_ = close + 2;
    Escape escape;
    escape.negated = name.starts_with('^');
    if (escape.negated) name.remove_prefix(1);
    if (!findNamedClass(name, &escape.set)) return false;
    addEscapeSet(escape, set);
    return true;
  }

  std::string_view pattern_;
  std::size_t pos_ = 0;
  ParsedPattern result_;
};

}  // namespace

std::optional<ParsedPattern> parsePattern(std::string_view pattern) { return PatternParser(pattern).parse(); }

}  // namespace qm
