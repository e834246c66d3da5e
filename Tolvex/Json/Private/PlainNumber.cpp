#include "Tolvex/Json/Private/PlainNumber.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Characters.h"

namespace Tolvex::Json {

namespace {

constexpr int mantissaDigits = 19;  // as many as 64 bits always hold
constexpr std::uint64_t exactMantissa = std::uint64_t{1} << std::numeric_limits<double>::digits;
constexpr int exactPower = 22;  // 10^22 is the highest power of ten that a double holds exactly
constexpr std::array<double, exactPower + 1> powersOfTen = {
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int longExponent = 4;  // digits; a longer exponent is left to ReadBareToken()

/// A decimal number as written: mantissa * 10^exponent.
struct Decimal
{
    std::uint64_t mantissa = 0;
    int exponent = 0;
    std::ptrdiff_t digits = 0;  ///< of the mantissa, leading zeros included
    bool negative = false;
    bool isInteger = true;  ///< written without point and exponent
};

/// Appends a digit to a number.
template <typename Number>
Number AppendDigit(Number number, char digit)
{
    return number * 10 + static_cast<unsigned char>(digit - '0');
}

inline const char* ReadDigits(const char* at, Decimal& decimal)
{
    constexpr std::uint32_t takesOneMore = (UINT32_MAX - 9) / 10;
    const char* const begin = at;
    // In 32 bits while they suffice: 64 bits take a 32-bit processor twice as many instructions.
    if (decimal.mantissa <= takesOneMore) {
        auto mantissa = static_cast<std::uint32_t>(decimal.mantissa);
        for (; IsDigit(*at) && mantissa <= takesOneMore; ++at) {
            mantissa = AppendDigit(mantissa, *at);
        }
        decimal.mantissa = mantissa;
    }
    for (; IsDigit(*at); ++at) {
        decimal.mantissa = AppendDigit(decimal.mantissa, *at);
    }
    decimal.digits += at - begin;
    return at;
}

/// @return the position after the exponent, or null.
const char* ReadExponent(const char* at, Decimal& decimal)
{
    const bool negative = *at == '-';
    if (*at == '-' || *at == '+') {
        ++at;
    }
    const char* const begin = at;
    int exponent = 0;
    for (; IsDigit(*at) && at - begin < longExponent; ++at) {
        exponent = exponent * 10 + (*at - '0');
    }
    decimal.exponent += negative ? -exponent : exponent;
    return at == begin || IsDigit(*at) ? nullptr : at;
}

/// @return the position after the number, or null.
const char* ReadDecimal(const char* at, Decimal& decimal)
{
    decimal.negative = *at == '-';
    if (decimal.negative) {
        ++at;
    }
    if (!IsDigit(*at)) {
        return nullptr;
    }
    at = ReadDigits(at, decimal);
    if (*at == '.') {
        decimal.isInteger = false;
        const char* const fraction = ++at;
        at = ReadDigits(at, decimal);
        decimal.exponent = -static_cast<int>(std::min<std::ptrdiff_t>(at - fraction, INT16_MAX));
    }
    if (*at == 'e' || *at == 'E') {
        decimal.isInteger = false;
        at = ReadExponent(at + 1, decimal);
    }
    return at;
}

/// Computes the number with a single rounding.
/// @return false if a single rounding is not enough.
bool ComputeExactly(const Decimal& decimal, double& number)
{
    if (decimal.digits > mantissaDigits) {
        return false;
    }
    if (decimal.exponent != 0 &&
        (decimal.mantissa > exactMantissa || std::abs(decimal.exponent) > exactPower)) {
        return false;
    }
    number = static_cast<double>(decimal.mantissa);
    if (decimal.exponent < 0) {
        number /= powersOfTen[static_cast<std::size_t>(-decimal.exponent)];
    } else {
        number *= powersOfTen[static_cast<std::size_t>(decimal.exponent)];
    }
    number = decimal.negative ? -number : number;
    return true;
}

/// Reads a number that needs more than one rounding.
/// @return false near the ends of the range: only strtod() knows which numbers it reports there.
bool ComputeFromText(const char* begin, const char* end, double& number)
{
    const auto [last, error] = std::from_chars(begin, end, number);
    return error == std::errc() && last == end &&
           std::abs(number) > std::numeric_limits<double>::min() &&
           std::abs(number) < std::numeric_limits<double>::max();
}

bool FitsInt(const Decimal& decimal)
{
    constexpr std::uint64_t highest = std::numeric_limits<std::int32_t>::max();
    return decimal.isInteger && decimal.mantissa <= highest + (decimal.negative ? 1U : 0U);
}

}  // namespace

const char* ReadPlainNumber(const char* begin, Value& value)
{
    Decimal decimal;
    const char* const end = ReadDecimal(begin, decimal);
    if (end == nullptr || (decimal.isInteger && decimal.digits > mantissaDigits)) {
        return nullptr;  // a long integer may be a small one after many zeros
    }
    if (FitsInt(decimal)) {
        const auto magnitude = static_cast<std::int64_t>(decimal.mantissa);
        Access::SetInt(value, static_cast<std::int32_t>(decimal.negative ? -magnitude : magnitude));
        return end;
    }
    double number = 0.0;
    if (!ComputeExactly(decimal, number) && !ComputeFromText(begin, end, number)) {
        return nullptr;
    }
    Access::SetDouble(value, number);
    return end;
}

}  // namespace Tolvex::Json
