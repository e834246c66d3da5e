#include "Tolvex/Json/Private/SixDecimals.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace Tolvex::Json {

namespace {

constexpr int decimals = 6;
constexpr std::uint32_t scale = 1000000;

/// A number rounded to six decimals, half to even.
struct Rounded
{
    std::uint64_t integer;
    std::uint32_t fraction;  ///< in millionths
};

constexpr double integerLimit = 0x1p62;    ///< 64 bits hold what is below
constexpr double fractionUnits = 0x1p63;   ///< one, as a fraction in 63 bits
constexpr double wholeFraction = 0x1p-11;  ///< from here on 63 bits hold every fraction exactly

/// Rounds a magnitude below integerLimit. Computes in integers, so nothing is rounded twice, and
/// the rounding mode makes no difference.
/// @return false if bits beyond these 63 could decide the rounding.
bool RoundDecimals(double magnitude, Rounded& rounded)
{
    constexpr std::uint64_t half = std::uint64_t{1} << 62U;
    constexpr std::uint64_t lostAtMost = std::uint64_t{1} << 20U;  // in the product
    rounded.integer = static_cast<std::uint64_t>(static_cast<std::int64_t>(magnitude));
    const double fraction = magnitude - static_cast<double>(static_cast<std::int64_t>(magnitude));
    const auto bits =
        static_cast<std::uint64_t>(static_cast<std::int64_t>(fraction * fractionUnits));

    // bits * scale, in two halves of at most 64 bits.
    const std::uint64_t low = (bits & UINT32_MAX) * scale;
    const std::uint64_t high = (bits >> 32U) * scale + (low >> 32U);
    const std::uint64_t remainder = (high & 0x7FFFFFFFU) << 32U | (low & UINT32_MAX);
    rounded.fraction = static_cast<std::uint32_t>(high >> 31U);
    if (magnitude < wholeFraction && remainder <= half && remainder >= half - lostAtMost) {
        return false;
    }

    if (remainder > half || (remainder == half && rounded.fraction % 2 != 0)) {
        ++rounded.fraction;
    }
    if (rounded.fraction == scale) {
        rounded.fraction = 0;
        ++rounded.integer;
    }
    return true;
}

}  // namespace

char* PutSixDecimals(char* at, double number)
{
    char* const end = at + longestSixDecimals;
    Rounded rounded{};
    const double magnitude = std::abs(number);
    if (!(magnitude < integerLimit) || !RoundDecimals(magnitude, rounded)) {
        return std::to_chars(at, end, number, std::chars_format::fixed, decimals).ptr;
    }
    if (std::signbit(number)) {
        *at++ = '-';
    }
    at = rounded.integer <= UINT32_MAX
             ? std::to_chars(at, end, static_cast<std::uint32_t>(rounded.integer)).ptr
             : std::to_chars(at, end, rounded.integer).ptr;
    // A leading one keeps the zeros after it. Then the point replaces the one.
    std::to_chars(at, end, scale + rounded.fraction);
    *at = '.';
    return at + 1 + decimals;
}

}  // namespace Tolvex::Json
