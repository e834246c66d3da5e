/// @file
/// The time zone of the C library: keeps forks away from it, and tells whether a cached local time
/// is still of the current zone.
#pragma once

#include <cstdint>
#include <mutex>

namespace Tolvex::Base {

/// Counts the calls of Util::RefreshTimeZone(). It wraps.
///
/// A cache of a broken-down local time stores this number, read before the time was broken down.
/// If the number has changed since, the cached time may be of an earlier zone.
/// @par Thread safety
/// Thread-safe: one atomic load.
std::uint32_t TimeZoneGeneration();

/// Keeps the process from forking while the result exists. Hold it in functions of the C library
/// that use the time zone or create timers: in a child, their locks would stay taken.
/// @par Thread safety
/// Thread-safe. Waits for other threads that hold it.
std::unique_lock<std::mutex> LockAgainstForks();

/// Reads the time zone again and begins a new generation. A fork waits meanwhile.
/// @par Thread safety
/// Thread-safe.
void RefreshTimeZone();

}  // namespace Tolvex::Base
