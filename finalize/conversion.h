#pragma once
// Raw-to-physical conversions of channel values.
#include <memory>

#include "mdf/record_layout.h"

namespace qm {

class ConversionBlock;

// The conversion a channel's conversion block describes: linear (type 1, offset and factor from
// the first two parameters) or value to value without interpolation (type 5, parameter pairs).
// Any other type, too few parameters, or no block give none.
std::shared_ptr<const Conversion> makeConversion(const ConversionBlock* block);

// Converts a channel's value (already a double); with no conversion the value passes unchanged.
// A value-to-value table maps a key to its value by exact match; a value that is no key of the
// table passes unchanged too.
double applyConversion(const Conversion* conversion, double value);

}  // namespace qm
