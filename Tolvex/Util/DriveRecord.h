/// @file
/// How the last drive ended: a small file that survives a loss of power at any moment.
/// @code
/// const Util::DriveRecord last = Util::ReadDriveRecord("/var/lib/camera/drive");
/// for (const std::string& name : last.overran) {
///     std::cout << name << " took too long at ignition off\n";
/// }
/// Util::WriteDriveRecord("/var/lib/camera/drive", {Util::DriveEnd::Died, {}});
/// @endcode
/// Interfaces::IgnitionOffSequence keeps such a record by itself.
/// @par Thread safety
/// Thread-safe. If two threads or processes write one record, the second waits up to 5 s; the last
/// one wins. A child that is forked during a write counts as a process that writes, as long as it
/// lives.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// How a drive ended.
enum class DriveEnd : std::int32_t
{
    None,         ///< there is no record: no drive before this one
    Unreadable,   ///< the record is damaged, or cannot be read
    Died,         ///< the process crashed, was killed, or lost its power
    Stopped,      ///< the application ended, with the ignition on
    IgnitionOff,  ///< the ignition went off, and the application reacted
};

/// The end of one drive.
struct DriveRecord
{
    DriveEnd end = DriveEnd::None;     ///< how the drive ended
    std::vector<std::string> overran;  ///< who took too long at ignition off
};

/// @param path  Of the record. Blocks as long as the file system does.
/// @return what the file says; None when there is no file, Unreadable for any content that
/// WriteDriveRecord() does not write.
TOLVEX_EXPORT DriveRecord ReadDriveRecord(const std::string& path);

/// Replaces the record, in one step: after a loss of power there is the old one or the new one.
///
/// Writes the file `path` + ".new" to the medium, renames it, and writes the directory to the
/// medium. Blocks until all this is done, and up to 5 s while another thread or process writes the
/// same record; then fails. The calling thread is not cancelled during the call.
/// @param path    Of the record, without a NUL; its directory must exist.
/// @param record  Died, Stopped or IgnitionOff, and names without line breaks: about 64 KiB in all.
/// @throws Tolvex::IException when it cannot be written ("Failed to write the drive record: ", the
/// step and the reason), or when the record is not as stated. The old record is left as it was,
/// except when only the last step fails, the one for the directory.
TOLVEX_EXPORT void WriteDriveRecord(const std::string& path, const DriveRecord& record);

}  // namespace Tolvex::Util
