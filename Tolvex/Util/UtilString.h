/// @file
/// Helpers for text.
/// @code
/// const std::string path = Util::Replace("a//b//c", "//", "/");       // "a/b/c"
/// const std::string code = Util::ToUpper("0x" + Util::ToHex(48879));  // "0XBEEF"
/// @endcode
/// @par Thread safety
/// Reentrant. The global locale must not be changed while ToUpper() or ToLower() reads it.
#pragma once

#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// @param text  Any bytes.
/// @return the text in upper case, byte by byte, by the global locale (std::locale::global()) at
///         the time of the call.
TOLVEX_EXPORT std::string ToUpper(const std::string& text);

/// @param text  Any bytes.
/// @return the text in lower case, byte by byte, by the global locale (std::locale::global()) at
///         the time of the call.
TOLVEX_EXPORT std::string ToLower(const std::string& text);

/// @param value  Any number.
/// @return the number in lower-case hexadecimal digits without prefix or padding; a negative one as
///         its two's complement of 32 bits (-1 gives "ffffffff"). The same in every locale.
TOLVEX_EXPORT std::string ToHex(int value);

/// Replaces every occurrence of a text by another.
///
/// Occurrences are replaced from left to right and do not overlap. The inserted text is not
/// searched again. The time is linear in the lengths of source and result.
/// @param source  Text to look in.
/// @param from    Text to look for; an empty one changes nothing.
/// @param to      Text to put in its place; may be empty.
/// @return the changed text.
TOLVEX_EXPORT std::string Replace(const std::string& source, const std::string& from,
                                  const std::string& to);

}  // namespace Tolvex::Util
