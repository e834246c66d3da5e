/// @file
/// Null pointers where a text is expected. Not installed.
#pragma once

namespace Tolvex::Base {

/// @return the text itself, or an empty one for a null pointer.
inline const char* TextOrEmpty(const char* text)
{
    return text == nullptr ? "" : text;
}

}  // namespace Tolvex::Base
