/// @file
/// Which file a descriptor or a path leads to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "Tolvex/Base/Private/Descriptor.h"

namespace Tolvex::Ilog {

/// A regular file and its size.
struct FileStatus
{
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;  ///< in bytes

    bool IsSameFile(const FileStatus& other) const
    {
        return device == other.device && inode == other.inode;
    }

    /// @return nothing for anything but a regular file.
    static std::optional<FileStatus> Of(const Base::Descriptor& file)
    {
        struct stat64 status
        {
        };
        return file.IsOpen() && fstat64(file.Get(), &status) == 0 ? Of(status) : std::nullopt;
    }

    /// @return nothing for anything but a regular file, or a link to one.
    static std::optional<FileStatus> Of(const std::string& path)
    {
        struct stat64 status
        {
        };
        return stat64(path.c_str(), &status) == 0 ? Of(status) : std::nullopt;
    }

private:
    static std::optional<FileStatus> Of(const struct stat64& status)
    {
        if (!S_ISREG(status.st_mode)) {
            return std::nullopt;
        }
        return FileStatus{status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size)};
    }
};

}  // namespace Tolvex::Ilog
