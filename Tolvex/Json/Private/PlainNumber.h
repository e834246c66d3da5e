/// @file
/// Decimal numbers in JSON text, read fast. See docs/json-speed.md. Not installed.
#pragma once

#include "Tolvex/Json/Json.h"

namespace Tolvex::Json {

/// Reads a decimal number into a value. A byte that no number has must stand behind it.
///
/// @return the byte behind the number; null, with the value untouched, for a text that only
///         ReadBareToken() can judge.
const char* ReadPlainNumber(const char* begin, Value& value);

}  // namespace Tolvex::Json
