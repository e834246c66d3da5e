/// @file
/// The size limit of a log file that several processes may share.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Log/Private/FileSettings.h"

namespace Tolvex::Ilog {

/// Opens the file for a line, and renames it first if the line would make it too long.
///
/// A thread that writes a line holds a shared flock() of the file. A thread that renames the file
/// holds an exclusive one. After locking, the thread checks that the path still leads to the file
/// that it opened. So no process writes to a file that was renamed, and a file is renamed once.
///
/// A lock ends with its process, and with the children that were forked while it was held. A
/// process that is killed while it renames leaves one number without a file, and the next one to
/// rename moves the files up to that number only. So no old file is replaced early.
/// @par Thread safety
/// Caller serialises.
class FileRotation
{
public:
    /// @param filePath      Of the file.
    /// @param fileSettings  Read for every line.
    FileRotation(std::string filePath, std::shared_ptr<const FileSettings> fileSettings);

    /// Opens the file, and creates it if it is missing. With a size limit it is locked then, unless
    /// another process keeps the lock.
    /// @param lineBytes  Number of bytes that are about to be written.
    Base::Descriptor Open(std::size_t lineBytes);

    /// Ends the lock of the file that was opened last, if there is one.
    void Unlock(const Base::Descriptor& file);

private:
    using Clock = std::chrono::steady_clock;

    bool Lock(const Base::Descriptor& file, int operation);
    void SyncIfWanted(const Base::Descriptor& file) const;
    bool Rotate(const Base::Descriptor& file, unsigned kept) const;

    const std::string path;
    const std::shared_ptr<const FileSettings> settings;
    bool locked = false;
    Clock::time_point retryAt;  ///< before that no lock is waited for, and nothing is renamed
};

}  // namespace Tolvex::Ilog
