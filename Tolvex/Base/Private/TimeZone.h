/// @file
/// The time zone of the C library: forks while it is used, and whether times that were broken down
/// earlier still hold.
#pragma once

#include <cstdint>
#include <mutex>

namespace Tolvex::Base {

/// Counts the calls of Util::RefreshTimeZone(). It wraps.
///
/// Who keeps a broken-down local time, or a text of one, keeps this number with it: read before the
/// time is broken down. When the number has changed, the time may be one of an earlier zone.
/// @par Thread safety
/// Thread-safe, without a lock; a load.
std::uint32_t TimeZoneGeneration();

/// Keeps the process from forking while the result exists. Hold it in functions of the C library
/// that use the time zone or create timers: in a child, their locks would stay taken.
/// @par Thread safety
/// Thread-safe. Waits for other threads that hold it.
std::unique_lock<std::mutex> LockAgainstForks();

/// Reads the time zone again, and begins a new generation. No fork comes in between.
/// @par Thread safety
/// Thread-safe.
void RefreshTimeZone();

}  // namespace Tolvex::Base
