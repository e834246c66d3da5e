#pragma once

#include <cstdint>
#include <memory>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Util/Timer.h"

namespace Tolvex::Util {

/// Keeps the temperature of the SoC in whole degrees Celsius, read anew every 60 seconds.
///
/// One for the whole process, made by the first GetInstance() or Start() and never destroyed. Log
/// lines show its value. The refresh runs on a short-lived thread of the C library with a stack of
/// 16384 bytes. It uses 7904 of them on x86-64 and 5248 on ARM, with what the C library keeps there
/// for the thread and with the resolving of functions at their first call. A child of fork() has no
/// refresh: there the value that it inherited stays.
/// @code
/// Util::TemperatureMonitor* const monitor = Util::TemperatureMonitor::GetInstance();
/// if (monitor->GetTemperatureAvailable()) {
///     std::cout << monitor->GetTemperature() << " C\n";
/// }
/// @endcode
/// @par Errors
/// A thermal zone that is missing, empty or unreadable makes the temperature unavailable until a
/// later refresh can read it. Without its timer the monitor keeps its first value for ever. Nothing
/// is logged or thrown.
/// @par Thread safety
/// Thread-safe. Two calls in a row are no snapshot: GetTemperatureAvailable() may be true for a
/// moment while GetTemperature() still gives the value before.
class TOLVEX_EXPORT TemperatureMonitor
{
public:
    /// Makes the monitor of the process unless there is one. Blocks for the first read of it.
    static void Start();

    /// @return the monitor of the process, made if need be; never null. Not owned by the caller.
    static TemperatureMonitor* GetInstance();

    /// Reads the temperature once, then starts the 60-second timer.
    TemperatureMonitor();

    /// Stops the refreshes and waits for one that runs.
    ~TemperatureMonitor();

    TemperatureMonitor(const TemperatureMonitor&) = delete;
    TemperatureMonitor& operator=(const TemperatureMonitor&) = delete;

    /// Refreshes the temperature; called by the timer.
    /// @param source  Ignored; may be null.
    void Tick(Timer* source);

    /// Refreshes the temperature from the first two characters of the kernel's thermal zone 0.
    ///
    /// @return whole degrees Celsius; the value before when the zone cannot be read.
    /// @note The kernel gives thousandths of a degree, so two characters are whole degrees from 10
    /// to 99 only: 105000 (105 degrees) reads as 10, 9500 as 95 and -5000 as -5.
    int ReadTemperature();

    /// @return whether the last read gave a temperature.
    bool GetTemperatureAvailable() { return Base::LoadShared(available); }

    /// @return the last temperature read in whole degrees Celsius; 0 before there was one. A read
    /// that fails leaves it as it is.
    int GetTemperature() { return Base::LoadShared(temperature); }

private:
    struct Gate;

    static TemperatureMonitor* instance;  ///< shared: set once

    Timer* timer = nullptr;        ///< the periodic reader; owned
    bool available = false;        ///< shared: the last read succeeded
    std::int32_t temperature = 0;  ///< shared: last value read, whole degrees Celsius
    std::shared_ptr<Gate> gate;    ///< between a refresh and the destructor
};

}  // namespace Tolvex::Util
