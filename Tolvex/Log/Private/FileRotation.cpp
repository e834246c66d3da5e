#include "Tolvex/Log/Private/FileRotation.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "Tolvex/Base/Private/SharedFile.h"

namespace Tolvex::Ilog {

namespace {

constexpr mode_t newFileMode = 0666;                          // less the umask
constexpr std::chrono::milliseconds longestWaitForLock(200);  // of a process that hangs
constexpr std::chrono::seconds retryInterval(2);

// Bounds two loops: another process renames the file every time, or rename() does nothing because
// both names are links to one file.
constexpr int mostReopenings = 20;

std::string NumberedPath(const std::string& path, unsigned number)
{
    return number == 0 ? path : path + '.' + std::to_string(number);
}

/// @return whether the name is in use, or may be.
bool IsTaken(const std::string& path)
{
    struct stat64 status
    {
    };
    return lstat64(path.c_str(), &status) == 0 || errno != ENOENT;
}

/// @return whether no name leads to the file any more: a line in it would be lost.
bool IsRemoved(const Base::Descriptor& file)
{
    struct stat64 status
    {
    };
    return fstat64(file.Get(), &status) == 0 && status.st_nlink == 0;
}

}  // namespace

FileRotation::FileRotation(std::string filePath, std::shared_ptr<const FileSettings> fileSettings)
    : path(std::move(filePath)), settings(std::move(fileSettings))
{
}

Base::Descriptor FileRotation::Open(std::size_t lineBytes)
{
    const SizeLimit limit = settings->sizeLimit;  // Once: it may change meanwhile.
    for (int reopenings = 0;; ++reopenings) {
        locked = false;
        Base::Descriptor file(
            open64(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, newFileMode));
        const std::optional<Base::FileStatus> status =
            limit.Bytes() == 0 ? std::nullopt : Base::FileStatus::Of(file);
        if (!status) {
            return file;
        }

        const bool full = status->size != 0 && status->size + lineBytes > limit.Bytes();
        const bool rotating = full && Clock::now() >= retryAt;
        if (rotating && limit.KeptFiles() != 0) {
            SyncIfWanted(file);  // First without the lock, so that the sync under it is short.
        }
        locked = Lock(file, rotating ? LOCK_EX : LOCK_SH);
        if (!status->IsSameFile(Base::FileStatus::Of(path))) {
            // The file was renamed or removed before it was locked. After many tries a renamed file
            // is used. A removed one is never used: the loop ends when no process removes the file.
            if (reopenings < mostReopenings || IsRemoved(file)) {
                Unlock(file);
                continue;
            }
            return file;
        }
        if (!locked || !rotating) {
            return file;
        }
        if (!Rotate(file, limit.KeptFiles()) || reopenings >= mostReopenings) {
            retryAt = Clock::now() + retryInterval;
            return file;
        }
        Unlock(file);
    }
}

void FileRotation::Unlock(const Base::Descriptor& file)
{
    // Not left to the close: a child that was forked meanwhile has a copy of the descriptor.
    if (locked) {
        flock(file.Get(), LOCK_UN);
    }
}

/// Waits for a limited time. For some time after a failure it tries once and does not wait.
bool FileRotation::Lock(const Base::Descriptor& file, int operation)
{
    if (Clock::now() < retryAt) {
        return Base::LockFile(file, operation, std::chrono::milliseconds(0));
    }
    if (Base::LockFile(file, operation, longestWaitForLock)) {
        return true;
    }
    retryAt = Clock::now() + retryInterval;
    return false;
}

/// Before the rename: a later sync opens the path and would miss this file.
void FileRotation::SyncIfWanted(const Base::Descriptor& file) const
{
    if (settings->durability != LogDurability::None) {
        Base::SyncData(file);
    }
}

/// Renames the locked file, and the older ones before it. @return false if that is not possible.
bool FileRotation::Rotate(const Base::Descriptor& file, unsigned kept) const
try {
    if (kept == 0) {
        return unlink(path.c_str()) == 0;
    }
    SyncIfWanted(file);

    unsigned number = 1;
    while (number < kept && IsTaken(NumberedPath(path, number))) {
        ++number;
    }
    for (; number > 0; --number) {
        if (std::rename(NumberedPath(path, number - 1).c_str(),
                        NumberedPath(path, number).c_str()) != 0) {
            return false;
        }
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;  // The names need memory, the line does not.
}

}  // namespace Tolvex::Ilog
