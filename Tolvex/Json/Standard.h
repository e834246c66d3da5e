/// @file
/// Writing a JSON document for other programs: standard JSON (RFC 8259) instead of the dialect.
/// @code
/// Json::Object event;
/// event["driver"] = "J. \"Joe\" Doe";
/// event["speed"] = 13.9;
/// std::cout << Json::SerializeStandard(event) << '\n';
/// // {"driver":"J. \"Joe\" Doe","speed":13.9}
/// @endcode
#pragma once

#include <string>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Json {

/// Writes a value as compact text that every reader of standard JSON accepts. The locale of the
/// process makes no difference, and neither does the depth of the value.
///
/// - Quotes, backslashes and control characters in strings and keys are escaped, NUL included. All
///   other characters are written as UTF-8.
/// - Ill-formed UTF-8 is replaced by U+FFFD, one for each maximal part of a character.
/// - Floats and doubles are written as the shortest text that reads back as the same value.
///   They have a point or an exponent, so that they are read as floating-point numbers.
/// - NaN and infinities are written as null.
///
/// @note Deserialize() reads the dialect and is no reader for this text: it may refuse or change
/// strings, and drops nulls from arrays. Use Serialize() for text that Deserialize() reads.
/// @note Keys that differ only in invalid bytes become equal, so the text repeats a key.
/// @param value  Of any type. Unlike Serialize(), writes a scalar as well.
/// @return the text; never empty.
/// @par Thread safety
/// Reentrant.
TOLVEX_EXPORT std::string SerializeStandard(const Value& value);
/// Writes an array. Otherwise as for a value.
///
/// @param array  May be empty: "[]".
/// @return the text.
TOLVEX_EXPORT std::string SerializeStandard(const Array& array);
/// Writes an object. Otherwise as for a value.
///
/// @param object  May be empty: "{}".
/// @return the text.
TOLVEX_EXPORT std::string SerializeStandard(const Object& object);

}  // namespace Tolvex::Json
