/// @file
/// What the header of a log line says about its moment. Not installed.
#pragma once

#include <array>
#include <cstddef>
#include <ctime>
#include <string_view>

namespace Tolvex::Ilog {

/// The time and the temperature of one moment.
struct LineFacts
{
    std::array<char, 64> text{};
    std::size_t length = 0;
    std::time_t second = 0;  ///< of the wall clock, which the text shows
    bool temperatureKnown = false;
    int temperature = 0;  ///< whole degrees Celsius

    /// @return the local date and time, as "2024-05-01 12:00:07".
    std::string_view Time() const { return {text.data(), length}; }
};

/// Finds out about this moment.
///
/// The text of the time is made once a second for all loggers. A changed wall clock or time zone
/// shows at once. The first call of a process makes its temperature monitor.
/// @par Thread safety
/// Thread-safe.
LineFacts ReadLineFacts();

/// Keep all threads out of ReadLineFacts() while the process forks: the locks that the C library
/// takes in it, of the time zone and of timers, would stay taken for ever in the child.
void LockLineFacts();
void UnlockLineFacts();

}  // namespace Tolvex::Ilog
