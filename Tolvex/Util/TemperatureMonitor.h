#pragma once

#include <cstdint>
#include <memory>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Util/Timer.h"

namespace Tolvex::Util {

/// Reads the temperature of the SoC in whole degrees Celsius every 60 seconds, and keeps it.
///
/// The process has one monitor. The first GetInstance() or Start() creates it, and it is never
/// destroyed. Log lines show its value. The refresh runs on a short-lived thread of the C library
/// with a stack of 16384 bytes. It uses about one half of the stack. That thread runs no signal
/// handlers, except those of faults. A child of fork() has no refresh and keeps the last value.
/// @code
/// Util::TemperatureMonitor* const monitor = Util::TemperatureMonitor::GetInstance();
/// if (monitor->GetTemperatureAvailable()) {
///     std::cout << monitor->GetTemperature() << " C\n";
/// }
/// @endcode
/// @par Errors
/// While the thermal zone is missing, empty or unreadable, the temperature is unavailable. If the
/// timer cannot be created, the monitor keeps its first value. Nothing is logged or thrown.
/// @par Thread safety
/// Thread-safe. Two calls in a row are no snapshot: for a moment GetTemperatureAvailable() may
/// already be true while GetTemperature() still returns the old value.
class TOLVEX_EXPORT TemperatureMonitor
{
public:
    /// Creates the monitor of the process unless there is one. Blocks for its first read.
    static void Start();

    /// @return the monitor of the process, created by the first call; never null. Do not delete it.
    static TemperatureMonitor* GetInstance();

    /// Reads the temperature once, then starts the 60-second timer.
    TemperatureMonitor();

    /// Stops the refreshes, and waits for one that runs.
    ~TemperatureMonitor();

    TemperatureMonitor(const TemperatureMonitor&) = delete;
    TemperatureMonitor& operator=(const TemperatureMonitor&) = delete;

    /// Refreshes the temperature; called by the timer.
    /// @param source  Ignored; may be null.
    void Tick(Timer* source);

    /// Refreshes the temperature from the first two characters of the kernel's thermal zone 0.
    ///
    /// @return whole degrees Celsius; the old value if the zone cannot be read.
    /// @note The kernel gives thousandths of a degree, so two characters are whole degrees only
    /// from 10 to 99: 105000 (105 degrees) reads as 10, 9500 as 95 and -5000 as -5.
    int ReadTemperature();

    /// @return whether the last read gave a temperature.
    bool GetTemperatureAvailable() { return Base::LoadShared(available); }

    /// @return the last temperature that was read, in whole degrees Celsius; 0 before the first. A
    /// read that fails does not change it.
    int GetTemperature() { return Base::LoadShared(temperature); }

private:
    struct Gate;

    static TemperatureMonitor* instance;  ///< shared: set once

    Timer* timer = nullptr;        ///< calls Tick() every 60 seconds; owned
    bool available = false;        ///< shared: the last read succeeded
    std::int32_t temperature = 0;  ///< shared: last value read, whole degrees Celsius
    std::shared_ptr<Gate> gate;    ///< keeps a refresh and the destructor apart
};

}  // namespace Tolvex::Util
