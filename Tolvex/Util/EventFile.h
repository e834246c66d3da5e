/// @file
/// Event files that do not overwrite each other: two events within one second get two files.
///
/// The first event of a second gets the plain name of BuildEventFileName(), such as
/// "EVENT_FRONT_040321050607.mp4". The next ones get a counter behind the time stamp:
/// "EVENT_FRONT_040321050607_2.mp4", "EVENT_FRONT_040321050607_3.mp4". GetEventTimeFromFileName()
/// reads all of them, because the time stamp stays in its place.
/// @code
/// try {
///     const std::string path =
///         Util::CreateEventFile("/media/events", "EVENT_FRONT_", std::time(nullptr), "mp4");
///     std::cout << "recording to " << path << '\n';
/// } catch (const IException& problem) {
///     Ilog::LogLine(Ilog::LogType::Error, LogModule::Event) << problem.what();
/// }
///
/// Util::EventFileName parts;
/// if (Util::ReadEventFileName("EVENT_FRONT_040321050607_2.mp4", parts)) {
///     std::cout << Util::DateISO(parts.time) << ", event " << parts.number << '\n';
/// }
/// @endcode
/// @par Thread safety
/// Reentrant. Threads and processes that create files in one directory at the same time never get
/// the same file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Length of the prefix of an event file's name, in characters.
constexpr std::size_t eventPrefixLength = 12;

/// Largest number of event files with the same prefix, second and extension in one directory.
constexpr std::uint32_t mostEventsPerSecond = 9999;

/// The parts of an event file's name.
struct EventFileName
{
    std::string prefix;        ///< eventPrefixLength characters
    std::time_t time = 0;      ///< of the event, to the second
    std::uint32_t number = 1;  ///< 1 for a plain name, otherwise the counter behind the stamp
    std::string extension;     ///< without the full stop
};

/// Creates a new, empty file for one event. Never opens or replaces a file that exists.
///
/// The file has the access rights 0666 less the umask. The directory is not synced to the medium.
/// A cancellation does not interrupt the creation. Blocks as long as the file system does.
/// @param directory  Must exist; empty for the working directory.
/// @param prefix     eventPrefixLength characters, without a slash or NUL.
/// @param t          Time of the event.
/// @param extension  Without the full stop, without a slash or NUL; may be empty.
/// @return the path of the file: the directory, a slash, the name.
/// @throws Tolvex::IException when the file cannot be created ("Failed to create the event file: ",
/// the reason, and the path in brackets), when a part of the name is not as stated, when the time
/// has no local date, and when mostEventsPerSecond events have their files already. In all these
/// cases no file is created.
TOLVEX_EXPORT std::string CreateEventFile(const std::string& directory, const std::string& prefix,
                                          const time_t& t, const std::string& extension);

/// Reads a name that CreateEventFile() or BuildEventFileName() has made from a prefix of
/// eventPrefixLength characters.
///
/// Unlike GetEventTimeFromFileName() it reads the seconds, and refuses every other name. If a
/// change of the clocks repeats the local time, the result is one of its two instants. The year of
/// a name has two digits and is read as 2000 to 2099: an event that was named while the clock stood
/// in 1970 reads as one of 2070, or is refused where time_t has 32 bits.
/// @param name   File name without directories.
/// @param parts  Receives the parts; untouched when false is returned.
/// @return false for any other name, for a date that the calendar does not have, and for a time
/// that time_t cannot hold.
TOLVEX_EXPORT bool ReadEventFileName(const std::string& name, EventFileName& parts);

}  // namespace Tolvex::Util
