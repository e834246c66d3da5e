/// @file
/// Tells whether a cached local time is still of the current time zone.
#pragma once

#include <cstdint>

namespace Tolvex::Base {

/// Counts the calls of Util::RefreshTimeZone(). It wraps.
///
/// A cache of a broken-down local time stores this number, read before the time was broken down.
/// If the number has changed since, the cached time may be of an earlier zone.
/// @par Thread safety
/// Thread-safe: one atomic load.
std::uint32_t TimeZoneGeneration();

/// Reads the time zone again and begins a new generation.
///
/// A fork waits meanwhile. Otherwise the C library's time zone lock would stay locked in the child.
/// @par Thread safety
/// Thread-safe.
void RefreshTimeZone();

}  // namespace Tolvex::Base
