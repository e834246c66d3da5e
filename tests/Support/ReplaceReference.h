/// @file
/// The text that Replace() has to give, by the plainest steps.
#pragma once

#include <cstddef>
#include <string>

namespace Tolvex::Support {

/// Replaces in place, one match after the other. An empty `from` changes nothing.
inline std::string ReplaceInPlace(std::string text, const std::string& from, const std::string& to)
{
    if (from.empty()) {
        return text;
    }
    for (std::size_t position = text.find(from); position != std::string::npos;
         position = text.find(from, position + to.size())) {
        text.replace(position, from.size(), to);
    }
    return text;
}

}  // namespace Tolvex::Support
