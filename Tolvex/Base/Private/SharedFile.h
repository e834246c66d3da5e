/// @file
/// Files that several processes open, lock and rename.
///
/// A lock belongs to the file and not to its name. So a process that has locked a file has to look
/// whether the path still leads to it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "Tolvex/Base/Private/Descriptor.h"

namespace Tolvex::Base {

/// Which regular file a descriptor or a path leads to, and its size.
/// @par Thread safety
/// Reentrant.
struct FileStatus
{
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;  ///< in bytes

    /// @return nothing for anything but a regular file.
    static std::optional<FileStatus> Of(const Descriptor& file);
    /// @return nothing for anything but a regular file, or a link to one.
    static std::optional<FileStatus> Of(const std::string& path);

    /// @return whether the other is of the same file, whatever its size.
    bool IsSameFile(const std::optional<FileStatus>& other) const
    {
        return other && device == other->device && inode == other->inode;
    }

private:
    static std::optional<FileStatus> From(const struct stat64& status);
};

/// Locks a file with flock(). Waits for a limited time while other processes hold the lock.
///
/// @param operation    LOCK_SH or LOCK_EX.
/// @param longestWait  0 or less to try once.
/// @return false when the file is not locked; errno tells why (EWOULDBLOCK: the wait was not
/// enough).
bool LockFile(const Descriptor& file, int operation, std::chrono::milliseconds longestWait);

}  // namespace Tolvex::Base
