#include "regex/case_folding.h"

namespace qm {
namespace {

// Upper-case letters first..last (every `step`-th one) whose lower-case form is code + delta.
struct CaseRange {
  std::uint32_t first;
  std::uint32_t last;
  std::int32_t delta;
  std::uint32_t step;
};

constexpr CaseRange kCaseRanges[] = {
    {0x41, 0x5A, 32, 1},       // A-Z
    {0xC0, 0xD6, 32, 1},       // À-Ö
    {0xD8, 0xDE, 32, 1},       // Ø-Þ
    {0x100, 0x12E, 1, 2},      // Ā-Į, pairs upper/lower
    {0x132, 0x136, 1, 2},      // Ĳ-Ķ
    {0x139, 0x147, 1, 2},      // Ĺ-Ň
    {0x14A, 0x176, 1, 2},      // Ŋ-Ŷ
    {0x178, 0x178, -0x79, 1},  // Ÿ -> ÿ
    {0x179, 0x17D, 1, 2},      // Ź-Ž
    {0x391, 0x3A1, 32, 1},     // Α-Ρ
    {0x3A3, 0x3AB, 32, 1},     // Σ-Ϋ
    {0x400, 0x40F, 80, 1},     // Ѐ-Џ
    {0x410, 0x42F, 32, 1},     // А-Я
};

constexpr std::uint32_t kGreekFinalSigma = 0x3C2;
constexpr std::uint32_t kGreekCapitalSigma = 0x3A3;

bool inRange(const CaseRange& range, std::uint32_t code) {
  return code >= range.first && code <= range.last && (code - range.first) % range.step == 0;
}

}  // namespace

std::uint32_t toLowerCase(std::uint32_t code) {
  for (const CaseRange& range : kCaseRanges) {
    if (inRange(range, code)) return static_cast<std::uint32_t>(static_cast<std::int64_t>(code) + range.delta);
  }
  return code;
}

std::uint32_t toUpperCase(std::uint32_t code) {
  if (code == kGreekFinalSigma) return kGreekCapitalSigma;
  for (const CaseRange& range : kCaseRanges) {
    std::int64_t upper = static_cast<std::int64_t>(code) - range.delta;
    if (upper >= 0 && inRange(range, static_cast<std::uint32_t>(upper))) return static_cast<std::uint32_t>(upper);
  }
  return code;
}

}  // namespace qm
