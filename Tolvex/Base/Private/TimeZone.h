/// @file
/// Whether broken-down times that were made earlier still hold.
#pragma once

#include <cstdint>

namespace Tolvex::Base {

/// Counts the calls of Util::RefreshTimeZone(). It wraps.
///
/// Who keeps a broken-down local time, or a text of one, keeps this number with it: read before the
/// time is broken down. When the number has changed, the time may be one of an earlier zone.
/// @par Thread safety
/// Thread-safe, without a lock; a load.
std::uint32_t TimeZoneGeneration();

/// Reads the time zone again, and begins a new generation.
///
/// No fork comes in between: in the child the lock of the C library's zone would stay taken.
/// @par Thread safety
/// Thread-safe.
void RefreshTimeZone();

}  // namespace Tolvex::Base
