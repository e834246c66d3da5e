#pragma once

#include <ctime>
#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Stopwatch that can also write the elapsed time as a log line.
///
/// Reads the wall clock (CLOCK_REALTIME): a change of the system time during a measurement changes
/// the result. Can be started again at any time. See examples/Stopwatch.cpp.
/// @par Errors
/// No error is reported. A clock that cannot be read gives 0.0 seconds.
/// @par Thread safety
/// Caller serialises.
class TOLVEX_EXPORT TimeMonitor
{
public:
    /// @param start  true: calls StartTimer(). false: call StartTimer() before the first reading.
    TimeMonitor(bool start);

    /// Starts the measurement, or starts it again.
    ///
    /// @return false, always.
    /// @note The result is false on success too: it is no success flag.
    bool StartTimer();

    /// @return seconds since StartTimer(); 0.0 if the clock cannot be read.
    double GetElapsedTime();

    /// Logs "Time elapsed [name] => number": seconds, six significant digits, no unit, no module.
    ///
    /// Blocks until earlier lines have been composed and written.
    /// @param name  Any text, to tell measurements apart.
    /// @note The clock is read after the first part of the line has been composed, so the elapsed
    /// time includes the time for that part. The clock is read even if all loggers are disabled.
    /// @throws std::system_error if a logger's line lock cannot be taken.
    void ShowElapsedTime(std::string name);

private:
    timespec startInstant = {};
    timespec lastReading = {};
};

}  // namespace Tolvex::Util
