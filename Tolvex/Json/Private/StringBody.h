/// @file
/// The bytes between the quotes of a string in JSON text.
#pragma once

#include <string>
#include <string_view>

namespace Tolvex::Json {

/// The letters of the simple escapes, and the bytes that they stand for, in the same order.
inline constexpr std::string_view escapeLetters = "\"/\\bfnrt";
inline constexpr std::string_view escapedBytes = "\"/\\\b\f\n\r\t";

/// @return the next double quote that no backslash escapes, or null.
const char* FindQuote(const char* begin, const char* end);

/// Decodes the body of a string, without the white space at its ends.
///
/// @param text  An empty string; gets the result.
/// @throws std::out_of_range if the body ends within a `\u` escape, before its third digit.
void DecodeString(std::string_view body, std::string& text);

}  // namespace Tolvex::Json
