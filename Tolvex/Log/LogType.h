#pragma once

#include <cstdint>

namespace Tolvex::Ilog {

/// Severity of a log line. Any other value is treated as Info. See examples/LogLines.cpp.
enum class LogType : std::int32_t
{
    Info,     ///< no tag, no colour
    Warning,  ///< tag "[WARNING]", yellow on the console
    Error,    ///< tag "[ERROR]", red on the console
    Notice,   ///< no tag, green on the console
};

}  // namespace Tolvex::Ilog
