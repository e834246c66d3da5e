#include "Tolvex/Util/TimeMonitor.h"

#include <cstdint>
#include <ostream>

#include "Tolvex/Log/Logger.h"

namespace Tolvex::Util {
namespace {

using Ilog::Logger;

constexpr double secondsPerNanosecond = 1e-9;

/// Difference in 32 bits, whatever the width of the clock's members; wraps.
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
    // Required: "> 0", never true for clock_gettime(); callers get false even on success.
    return clock_gettime(CLOCK_REALTIME, &startInstant) > 0;
}

double TimeMonitor::GetElapsedTime()
{
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
    logger << "Time elapsed [" << name << "] => ";
    // Required: read only now, so the measured time includes the composition up to here.
    logger << GetElapsedTime() << std::endl;
}

}  // namespace Tolvex::Util
