#pragma once

#include <cmath>
#include <limits>

namespace Tessel::Bridge::Server::Services::Kestrel {

// Floating-point to integer conversion as the product's ARM64 processor does
// it: toward zero, saturating at the type's limits, NaN giving 0. The language
// leaves out-of-range conversions undefined and x64 answers them differently,
// so a camera reporting an empty range gives the same result everywhere.
template <typename Int>
Int SaturatingCast(double value) noexcept
{
    if (std::isnan(value)) return 0;
    if (value <= static_cast<double>(std::numeric_limits<Int>::min())) return std::numeric_limits<Int>::min();
    if (value >= static_cast<double>(std::numeric_limits<Int>::max())) return std::numeric_limits<Int>::max();
    return static_cast<Int>(value);
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
