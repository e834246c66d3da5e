/// @file
/// Random identifiers.
/// @code
/// const std::string session = Util::NewUid();  // "6ba7b810-9dad-41d1-80b4-00c04fd430c8", say
/// @endcode
#pragma once

#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Makes a new random identifier, which differs from all others, also from those of other
/// processes.
///
/// Right after boot the call blocks until the kernel has gathered randomness. On a device without a
/// hardware source of randomness that can take minutes, unless the boot loader passes a seed.
/// @return a UUID of version 4 as text: 36 characters, 8-4-4-4-12 lower-case hexadecimal digits.
/// @par Thread safety
/// Thread-safe, and safe across fork().
TOLVEX_EXPORT std::string NewUid();

}  // namespace Tolvex::Util
