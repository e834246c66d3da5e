/// @file
/// The sleep that all threads of the library use.
#pragma once

#include <chrono>
#include <ctime>
#include <limits>
#include <thread>

namespace Tolvex::Base {

/// The longest duration of one sleep, which is limited by the range of std::time_t.
constexpr std::chrono::milliseconds LongestSleep()
{
    using std::chrono::milliseconds;
    constexpr auto mostSeconds = std::numeric_limits<std::time_t>::max();
    if constexpr (mostSeconds < milliseconds::max().count() / 1000) {
        return std::chrono::seconds(mostSeconds) + milliseconds(999);
    } else {
        return milliseconds::max();
    }
}

/// Sleeps for the whole duration, even if signals interrupt it; returns at once for 0 or less.
///
/// A cancellation point. One sleep of the system, unless the duration exceeds LongestSleep().
/// @par Thread safety
/// Thread-safe. Blocks the calling thread.
inline void SleepFor(std::chrono::milliseconds duration)
{
    while (duration > LongestSleep()) {
        // Never where std::time_t has 64 bits.
        std::this_thread::sleep_for(LongestSleep());
        duration -= LongestSleep();
    }
    std::this_thread::sleep_for(duration);
}

}  // namespace Tolvex::Base
