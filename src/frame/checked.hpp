// The one way a double argument becomes an integer or a size: NaN, infinite,
// negative or huge values give defined results instead of undefined casts.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace zv::checked {

// Truncates toward zero into I. Values beyond I's range saturate at its ends;
// a NaN gives `nanValue`.
template <class I>
constexpr I truncateSaturated(double v, I nanValue = 0) noexcept {
    if (std::isnan(v)) return nanValue;
    constexpr double lo = double(std::numeric_limits<I>::min());
    // The first double above the range of I: 2^digits (exact for every width).
    constexpr double hiExclusive = 2.0 * double(I(1) << (std::numeric_limits<I>::digits - 1));
    if (v <= lo) return std::numeric_limits<I>::min();
    if (v >= hiExclusive) return std::numeric_limits<I>::max();
    return I(v);
}

// A count or size from a double: truncated, negatives and NaN give 0.
constexpr size_t toSize(double v) noexcept { return truncateSaturated<size_t>(v, 0); }

}  // namespace zv::checked
