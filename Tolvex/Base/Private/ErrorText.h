/// @file
/// The system's texts for error numbers.
#pragma once

#include <cstring>
#include <string>

namespace Tolvex::Base {

/// @return the system's text for an error number such as errno.
/// @par Thread safety
/// Thread-safe.
inline std::string ErrorText(int number)
{
    char buffer[128];
    return strerror_r(number, buffer, sizeof buffer);
}

}  // namespace Tolvex::Base
