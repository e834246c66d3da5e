/// @file
/// Writing numbers as "%f" does.
#pragma once

#include <cstddef>

namespace Tolvex::Json {

/// Bytes of the longest number: a sign, 309 digits, a point and six decimals.
constexpr std::size_t longestSixDecimals = 317;

/// Writes the text that "%f" gives in the C locale: six decimals at every magnitude; nan, inf.
///
/// @param at  Room for longestSixDecimals bytes.
/// @return the position after the text.
char* PutSixDecimals(char* at, double number);

}  // namespace Tolvex::Json
