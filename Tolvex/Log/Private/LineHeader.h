/// @file
/// The beginning of a log line: time, temperature and tag.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <ostream>

#include "Tolvex/Log/LogType.h"

namespace Tolvex::Util {
class TemperatureMonitor;
}

namespace Tolvex::Ilog {

/// Makes "[2024-05-01 12:00:07][47C][ERROR]". Keeps the text of the time for one second.
///
/// A changed wall clock shows in the next line. So does a new time zone after RefreshTimeZone(), or
/// with another standard offset from UTC. Any other change of the zone shows in the next second.
/// @par Thread safety
/// Caller serialises; different objects at the same time.
class LineHeader
{
public:
    /// Inserts the header of a line that begins now. The first one makes the temperature monitor.
    /// @throws std::system_error when a lock cannot be taken; std::bad_alloc, the first time only.
    void InsertInto(std::ostream& stream, LogType type);

private:
    std::array<char, 96> text{};  ///< begins with the time in brackets; longer than any header
    std::size_t timeLength = 0;
    std::time_t second = -1;           ///< that the time shows; -1: no time yet
    long zone = 0;                     ///< west of UTC, in seconds, without summer time
    std::uint32_t zoneGeneration = 0;  ///< see Base::TimeZoneGeneration()
    Util::TemperatureMonitor* monitor = nullptr;
};

}  // namespace Tolvex::Ilog
