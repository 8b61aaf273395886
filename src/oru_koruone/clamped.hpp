#pragma once

#include <cmath>
#include <limits>

namespace oru {

/// Truncated toward zero; what is too large for the integer becomes its largest value, what is too small its smallest,
/// and what is no number 0.
template <class Integer>
[[nodiscard]] inline Integer clampedTo(double value) {
    using Limits = std::numeric_limits<Integer>;
    if (std::isnan(value)) {
        return 0;
    }
    // The largest value itself may have no double, the power of two above it always has.
    if (value >= std::ldexp(1.0, Limits::digits)) {
        return Limits::max();
    }
    return value <= static_cast<double>(Limits::min()) ? Limits::min() : static_cast<Integer>(value);
}

}  // namespace oru
