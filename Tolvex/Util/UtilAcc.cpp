#include "Tolvex/Util/UtilAcc.h"

#include <cmath>
#include <limits>

#include "Tolvex/Base/Private/Saturate.h"

namespace Tolvex::UtilAcc {

namespace {

constexpr int fullScale = 128;  ///< counts at the sensor's range

/// The quotient of IEEE arithmetic, also for a divisor of zero, which is undefined in C++.
float Quotient(float dividend, int divisor)
{
    if (divisor != 0) {
        return dividend / static_cast<float>(divisor);
    }
    const bool undefined = dividend == 0.0F || std::isnan(dividend);
    return undefined ? std::numeric_limits<float>::quiet_NaN()
                     : std::copysign(std::numeric_limits<float>::infinity(), dividend);
}

}  // namespace

float AccNativeToFloat(unsigned char raw, unsigned char range)
{
    // Required: an integer division, unlike in AccFloatToNative(). A range of 3 has 42 counts per
    // g, and a range above 128 has 0.
    const int countsPerG = range != 0 ? fullScale / range : 0;
    return Quotient(static_cast<std::int8_t>(raw), countsPerG);
}

std::int8_t AccFloatToNative(float acceleration, unsigned char range)
{
    const float counts = Quotient(acceleration * static_cast<float>(fullScale), range);

    // Required: only the low 8 bits count, so an acceleration beyond the range wraps around.
    return static_cast<std::int8_t>(Base::SaturateToInt32(static_cast<double>(counts)));
}

}  // namespace Tolvex::UtilAcc
