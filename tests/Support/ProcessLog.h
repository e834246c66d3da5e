/// @file
/// The one logger of the process, for tests that work in a child process so that they find it
/// fresh.
#pragma once

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "Tolvex/Log/Logger.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/ScratchDirectory.h"

namespace Tolvex::Support {

inline Ilog::Logger& Log()
{
    return *Ilog::Logger::GetInstance();
}

/// Writes one complete line in four steps.
inline void WriteLine(const std::string& text, Ilog::LogType type = Ilog::LogType::Info)
{
    Log().WriteHeader(type);
    Log() << text << std::endl;
}

/// @return the lines of a text, as ReadFile() gives it, without their dates and temperatures.
inline std::vector<std::string> LinesWithoutDate(const std::string& text)
{
    std::vector<std::string> lines = SplitLines(text);
    std::transform(lines.begin(), lines.end(), lines.begin(), WithoutDate);
    return lines;
}

}  // namespace Tolvex::Support
