/// @file
/// Decimal numbers in JSON text, read fast. See docs/json-speed.md.
#pragma once

#include "Tolvex/Json/Json.h"

namespace Tolvex::Json {

/// Reads a decimal number into a value.
///
/// @param begin  Some byte after the number must be one that no number contains.
/// @return the position after the number; null, with the value unchanged, for a number that only
///         ReadBareToken() can judge.
const char* ReadPlainNumber(const char* begin, Value& value);

}  // namespace Tolvex::Json
