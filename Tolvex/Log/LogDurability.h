/// @file
/// When the lines of a log file reach the medium.
/// @code
/// using namespace std::chrono_literals;
/// Ilog::Logger::GetInstance()->SetFileDurability(Ilog::LogDurability::Interval, 500ms);
/// @endcode
#pragma once

namespace Tolvex::Ilog {

/// When the lines of a log file reach the storage medium, and so which lines a power cut can lose.
enum class LogDurability
{
    None,         ///< when the file system writes them, which takes seconds
    IgnitionOff,  ///< at Logger::RunIgnitionOff(); before that as None
    Interval,     ///< the interval of SetFileDurability() after they were written, plus the time of
                  ///< one sync
    EachLine,     ///< each line before the next one is written
};

}  // namespace Tolvex::Ilog
