/// @file
/// Calendar time: reading, formatting, comparing. All broken-down times are in the local time zone.
///
/// A change of the clocks skips or repeats some local times. The functions leave such times to
/// mktime(), with tm_isdst = -1 (unknown). A skipped time is shifted by the change. A repeated time
/// gives one of its two instants; earlier calls in the process decide which.
/// @code
/// std::string text = "2021-03-04 05:06:07";
/// const std::time_t start = Util::Str2Time(text);
/// std::cout << Util::DateISO(start) << ", " << Util::DayDiff(start, std::time(nullptr))
///           << " days ago, a " << Util::Date(start, "%A") << '\n';
/// @endcode
/// @par Thread safety
/// Reentrant, all of them; RefreshTimeZone() is thread-safe. Str2Time() writes to its argument.
#pragma once

#include <ctime>
#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Reads year (in full), month (1 to 12), day, hour, minute and second, in this order.
///
/// Blanks, commas, full stops, hyphens and colons separate the numbers; several separators in a row
/// count as one. "2021-03-04 05:06:07" and "2021,3.4 5:6:7" are the same time. Nothing is checked:
/// a field that is no number reads as 0, and numbers out of range carry over as in mktime(). Text
/// after the sixth number is ignored.
/// @note Writes to the caller's text although it is const: the first separator after each number
/// that is read becomes a NUL, also if there are fewer than six. Pass a string that no other thread
/// uses.
/// @param text  Changed, as stated above.
/// @return the time; (time_t)-1 for fewer than six numbers, and if the time cannot be represented.
TOLVEX_EXPORT time_t Str2Time(const std::string& text);

/// @param from  Unix time in seconds.
/// @param to    Unix time in seconds.
/// @return whole days of 86400 seconds between the two, truncated toward zero; negative when `to`
/// is earlier. Limited to the range of int.
TOLVEX_EXPORT int DayDiff(const time_t& from, const time_t& to);

/// Tells whether the local year of `t` is one of 2018 to 2025.
///
/// @note THE RANGE OF YEARS IS FIXED: EVERY DATE BEFORE 2018 AND EVERY DATE FROM 1 JANUARY 2026 ON
/// IS "NOT VALID". Applications rely on it: do not ask this function about today's date.
/// @param t  Unix time in seconds.
/// @return true if it is one of them.
TOLVEX_EXPORT bool IsValidDate(const time_t& t);

/// @param date  Gives year, month and day; Unix time in seconds.
/// @param time  Gives hour, minute and second; Unix time in seconds.
/// @return the calendar day of `date` at the clock time of `time`, both local; (time_t)-1 if
/// that cannot be represented.
TOLVEX_EXPORT time_t GetDateTime(const time_t& date, const time_t& time);

/// Formats `t` as strftime() does, in the local time zone and the current locale.
///
/// @param t       Unix time in seconds.
/// @param format  Conversions of strftime(); an empty format means "%a,%d %b %y %T%z". A NUL ends
///                the format.
/// @return the text, up to 2 bytes less than 16 MiB. A longer text, which only a field width or a
/// format of that length can produce, is returned as an empty text. The text is also empty if the
/// year of `t` does not fit into an int.
TOLVEX_EXPORT std::string Date(const time_t& t, std::string format);

/// @param format  As for Date().
/// @return the current time, formatted like Date().
TOLVEX_EXPORT std::string NewDate(std::string format);

/// @param t  Unix time in seconds.
/// @return `t` in local time as "2021-03-04 05:06:07".
TOLVEX_EXPORT std::string DateISO(const time_t& t);

/// Reads the time zone again. Log lines, file names and dates use the new zone from then on.
///
/// Call it after the program has set `TZ` or replaced `/etc/localtime`, for example because the
/// device has entered another zone. Without this call the change is noticed later, or never. If
/// `TZ` names the zone, only a new name counts as a change; new content in the file of the zone
/// does not. If the file is missing or damaged, the zone is UTC.
/// @code
/// std::filesystem::create_symlink("/usr/share/zoneinfo/Europe/Lisbon", "/etc/localtime.new");
/// std::filesystem::rename("/etc/localtime.new", "/etc/localtime");
/// Util::RefreshTimeZone();
/// @endcode
/// @par Thread safety
/// Thread-safe; but no thread may change the environment at the same time. Reads a file.
TOLVEX_EXPORT void RefreshTimeZone();

}  // namespace Tolvex::Util
