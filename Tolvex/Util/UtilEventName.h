/// @file
/// Names of recorded event files: a prefix, the local time as 12 digits, a full stop, an extension.
/// @code
/// const std::string name = Util::BuildEventFileName("EVENT_FRONT_", std::time(nullptr), "mp4");
/// std::time_t start = 0;
/// if (Util::GetEventTimeFromFileName(name, start)) {
///     std::cout << Util::DateISO(start) << '\n';
/// }
/// @endcode
/// @par Thread safety
/// Reentrant.
#pragma once

#include <ctime>
#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// @param t  Time of the event.
/// @return `t` in local time as day, month, year, hour, minute and second, two digits each:
/// "040321050607" is 4 March 2021, 05:06:07. Empty if the year of `t` does not fit into an int.
TOLVEX_EXPORT std::string EventTimeToString(const time_t& t);

/// @return a name such as "EVENT_FRONT_040321050607.mp4".
///
/// @param prefix     Any text. GetEventTimeFromFileName() can read the name back only if the prefix
///                   has 12 characters.
/// @param t          Time of the event.
/// @param extension  Without the full stop.
TOLVEX_EXPORT std::string BuildEventFileName(const std::string& prefix, const time_t& t,
                                             const std::string& extension);

/// Reads the time of an event back from its file's name. The prefix has exactly 12 characters.
///
/// Characters that are no digits are not refused: strtol() reads each field of two characters, and
/// a field without a number is 0. Numbers out of range carry over as in mktime(). Years are 2000 to
/// 2099. A name that ends after the hour has minute 0.
/// @note The seconds in the name are ignored: THE SECOND OF THE RESULT EQUALS ITS MINUTE.
/// @param name  File name without directories.
/// @param t     Receives the time, or (time_t)-1 if it cannot be represented; untouched if the
///              result is false.
/// @return true; false only for a name of fewer than 20 characters.
TOLVEX_EXPORT bool GetEventTimeFromFileName(const std::string& name, time_t& t);

}  // namespace Tolvex::Util
