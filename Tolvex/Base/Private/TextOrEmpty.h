/// @file
/// Null pointers in place of a text.
#pragma once

namespace Tolvex::Base {

/// @return the text itself, or an empty one for a null pointer.
inline const char* TextOrEmpty(const char* text)
{
    return text == nullptr ? "" : text;
}

}  // namespace Tolvex::Base
