/// @file
/// Reading a JSON document, and learning where and why its text is malformed.
/// @code
/// Json::ParseError error;
/// const Json::Value settings = Json::Deserialize("{\"fps\": 25,\n \"zone\": north}", error);
/// if (!error.reason.empty()) {
///     std::cerr << error.line << ':' << error.column << ": " << error.reason << '\n';
/// }  // 2:10: expected a number, true, false, null, or a string in double quotes
/// @endcode
#pragma once

#include <cstddef>
#include <string>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Json {

/// Where and why a text is malformed.
///
/// The place is the byte at which the reader noticed the fault. The mistake is there or before it:
/// a missing quote is often noticed only at the next comma.
/// @par Thread safety
/// Reentrant.
struct ParseError
{
    /// In bytes from the beginning of the text. If the fault is at the end: the length of the text
    /// without the blanks there.
    std::size_t offset = 0;
    std::size_t line = 0;    ///< from 1, ended by newlines; 0 if the text is good
    std::size_t column = 0;  ///< from 1, in characters of UTF-8, a tab is one; 0 if it is good
    std::string reason;      ///< for people, in English; empty if the text is good
};

/// Reads a document as Deserialize() without an error does: the same value, the same exceptions.
/// Good text takes the same time.
///
/// The error is the first fault of the text. Every text that reads as a null value has one. A text
/// with a malformed nested array or object has one, too, although the rest of it is read: in the
/// value, that array or object is null, or missing in the array around it.
/// A caller who must not lose settings takes any error as a failure. A caller who wants as much as
/// can be read looks at the value.
/// @note What the dialect reads on purpose is no fault, even if standard JSON forbids it: an
/// additional comma in an array, say. docs/json-dialect.md lists it.
/// @param text   The whole document; any bytes.
/// @param error  Overwritten, also before std::out_of_range is thrown; unchanged if memory is
///               exhausted.
/// @return as Deserialize() without an error.
/// @throws std::out_of_range as Deserialize() without an error.
/// @par Thread safety
/// Reentrant.
TOLVEX_EXPORT Value Deserialize(const std::string& text, ParseError& error);

}  // namespace Tolvex::Json
