#include "Tolvex/Base/Private/SharedFile.h"

#include <cerrno>
#include <sys/file.h>

#include "Tolvex/Base/Private/Sleep.h"

namespace Tolvex::Base {

namespace {

constexpr std::chrono::milliseconds lockPollInterval(1);

}  // namespace

std::optional<FileStatus> FileStatus::Of(const Descriptor& file)
{
    struct stat64 status
    {
    };
    return file.IsOpen() && fstat64(file.Get(), &status) == 0 ? From(status) : std::nullopt;
}

std::optional<FileStatus> FileStatus::Of(const std::string& path)
{
    struct stat64 status
    {
    };
    return stat64(path.c_str(), &status) == 0 ? From(status) : std::nullopt;
}

std::optional<FileStatus> FileStatus::From(const struct stat64& status)
{
    if (!S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return FileStatus{status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size)};
}

bool LockFile(const Descriptor& file, int operation, std::chrono::milliseconds longestWait)
{
    const auto deadline = std::chrono::steady_clock::now() + longestWait;
    while (flock(file.Get(), operation | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return false;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            errno = EWOULDBLOCK;
            return false;
        }
        SleepFor(lockPollInterval);
    }
    return true;
}

}  // namespace Tolvex::Base
