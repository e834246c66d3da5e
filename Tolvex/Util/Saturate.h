/// @file
/// Conversion of floating-point numbers to integers that is defined for every input.
#pragma once

#include <cstdint>
#include <limits>

namespace Tolvex::Util {

/// Truncates toward zero; saturates out of range; NaN gives 0. Never undefined, on any platform.
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

}  // namespace Tolvex::Util
