/// @file
/// Conversion of floating-point numbers to integers that is defined for every input.
/// @code
/// static_assert(Base::SaturateToInt32(-2.9) == -2);
/// static_assert(Base::SaturateToInt32(1e300) == 2147483647);
/// @endcode
#pragma once

#include <cstdint>
#include <limits>

namespace Tolvex::Base {

/// Truncates toward zero. Never undefined, on any platform.
/// @param value  Any number, infinities and NaN included.
/// @return the integer; the nearest 32-bit integer if it is out of range, 0 for NaN.
/// @par Thread safety
/// Reentrant.
constexpr std::int32_t SaturateToInt32(double value)
{
    constexpr double lowest = std::numeric_limits<std::int32_t>::min();
    constexpr double highest = std::numeric_limits<std::int32_t>::max();
    if (value >= lowest && value <= highest) {
        return static_cast<std::int32_t>(value);
    }
    if (value < lowest) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return value > highest ? std::numeric_limits<std::int32_t>::max() : 0;
}

}  // namespace Tolvex::Base
