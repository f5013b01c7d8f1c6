#include "finalize/conversion.h"

#include <algorithm>

#include "mdf/conversion_block.h"

namespace qm {

namespace {

constexpr std::uint8_t kConversionLinear = 1;
constexpr std::uint8_t kConversionValueToValue = 5;

std::size_t parameterCount(const ConversionBlock& block) {
  return std::min<std::size_t>(block.value_count, block.values.size());
}

}  // namespace

std::shared_ptr<const Conversion> makeConversion(const ConversionBlock* block) {
  if (block == nullptr) return nullptr;
  std::size_t count = parameterCount(*block);
  auto conversion = std::make_shared<Conversion>();
  if (block->conversion_type == kConversionLinear && count >= 2) {
    conversion->offset = block->values[0];
    conversion->factor = block->values[1];
    return conversion;
  }
  if (block->conversion_type == kConversionValueToValue) {
    conversion->kind = Conversion::Kind::kValueToValue;
    for (std::size_t i = 0; i + 1 < count; i += 2) {
      double key = block->values[i];
      bool seen = std::any_of(conversion->table.begin(), conversion->table.end(),
                              [key](const auto& pair) { return pair.first == key; });
      if (!seen) conversion->table.emplace_back(key, block->values[i + 1]);
    }
    return conversion;
  }
  return nullptr;
}

double applyConversion(const Conversion* conversion, double value) {
  if (conversion == nullptr) return value;
  if (conversion->kind == Conversion::Kind::kLinear) return conversion->offset + conversion->factor * value;
  for (const auto& [key, mapped] : conversion->table) {
    if (key == value) return mapped;
  }
  return value;
}

}  // namespace qm
