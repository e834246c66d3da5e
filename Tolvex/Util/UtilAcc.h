/// @file
/// Scaling of accelerometer samples. A raw sample is one byte, read as a signed number; the
/// full-scale range is the sensor's, in g.
/// @code
/// const float braking = UtilAcc::AccNativeToFloat(0xE0, 2);          // -0.5 g
/// const std::int8_t sample = UtilAcc::AccFloatToNative(braking, 2);  // -32, which is 0xE0
/// @endcode
/// @par Thread safety
/// Reentrant.
#pragma once

#include <cstdint>

#include "Tolvex/Types/Export.h"

namespace Tolvex::UtilAcc {

/// @param raw    Sample byte, -128 to 127 when read as signed.
/// @param range  Full-scale range in g. For 0 and for a range above 128 the result is that of a
///               division by zero: infinite, or NaN for a zero sample.
/// @return acceleration in g.
/// @note Divides by the whole number of counts per g: a range of 3 has 42, not 42 2/3. For a range
///       that does not divide 128, AccFloatToNative() is therefore not the exact inverse.
TOLVEX_EXPORT float AccNativeToFloat(unsigned char raw, unsigned char range);

/// @param acceleration  In g.
/// @param range         Full-scale range in g. 0 gives -1 for a positive acceleration and 0 for any
///                      other.
/// @return sample byte: the low 8 bits of the scaled number. The scaled number is truncated toward
///         zero and saturates at 32 bits; NaN gives 0.
/// @note Accelerations beyond the range wrap around and are not clamped: 2.5 g at a range of 2
///       gives -96.
TOLVEX_EXPORT std::int8_t AccFloatToNative(float acceleration, unsigned char range);

}  // namespace Tolvex::UtilAcc
