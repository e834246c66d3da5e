/// @file
/// Numbers, true, false and null in JSON text.
#pragma once

#include "Tolvex/Json/Json.h"

namespace Tolvex::Json {

/// Reads a token by the rules of the dialect, up to a comma or the end.
///
/// Blanks in the token are skipped. An empty token is the integer 0.
/// @param value  A fresh value; stays null for the token null.
/// @return the comma, or end; null if the token is malformed.
const char* ReadBareToken(const char* begin, const char* end, Value& value);

}  // namespace Tolvex::Json
