#include "Tolvex/Util/TimeMonitor.h"

#include <cstdint>
#include <ostream>

#include "Tolvex/Log/Logger.h"

namespace Tolvex::Util {
namespace {

using Ilog::Logger;

constexpr double secondsPerNanosecond = 1e-9;

/// Required: the difference has 32 bits and wraps, although the members of the clock may be wider.
template <typename Count>
double Difference(Count later, Count earlier)
{
    const auto difference = static_cast<std::uint32_t>(later) - static_cast<std::uint32_t>(earlier);
    return static_cast<double>(static_cast<std::int32_t>(difference));
}

}  // namespace

TimeMonitor::TimeMonitor(bool start)
{
    if (start) {
        StartTimer();
    }
}

bool TimeMonitor::StartTimer()
{
    // Required: false also on success, because "> 0" is never true for clock_gettime().
    return clock_gettime(CLOCK_REALTIME, &startInstant) > 0;
}

double TimeMonitor::GetElapsedTime()
{
    // Required: reads the wall clock, although it may be set during the measurement.
    if (clock_gettime(CLOCK_REALTIME, &lastReading) != 0) {
        return 0.0;
    }
    return Difference(lastReading.tv_sec, startInstant.tv_sec) +
           Difference(lastReading.tv_nsec, startInstant.tv_nsec) * secondsPerNanosecond;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface is fixed.
void TimeMonitor::ShowElapsedTime(std::string name)
{
    Logger& logger = *Logger::GetInstance();
    logger.WriteHeader(Ilog::LogType::Info);
    // Required text: the line has no module tag, and the number has no unit.
    logger << "Time elapsed [" << name << "] => ";
    // Required: the clock is read only now, so the time includes the composition of the line.
    logger << GetElapsedTime() << std::endl;
}

}  // namespace Tolvex::Util
