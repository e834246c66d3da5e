#include "Tolvex/Base/Private/ReplaceFile.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/Sleep.h"

namespace Tolvex::Base {

namespace {

constexpr std::chrono::milliseconds longestWaitForLock(5000);  // of a process that hangs
constexpr std::chrono::milliseconds lockPollInterval(1);

enum class Lock
{
    Held,
    Gone,  ///< the name stands for another file by now, or for none
    Busy   ///< another thread or process still writes the file
};

/// Waits for other writers of the file.
Lock LockNamed(const Descriptor& file, const std::string& name)
{
    for (auto waited = lockPollInterval; flock(file.Get(), LOCK_EX | LOCK_NB) != 0;
         waited += lockPollInterval) {
        if (errno != EINTR && errno != EWOULDBLOCK) {
            return Lock::Held;  // Best effort: not every file system has locks.
        }
        if (waited > longestWaitForLock) {
            return Lock::Busy;
        }
        SleepFor(lockPollInterval);
    }
    struct stat64 locked;
    struct stat64 named;
    const bool gone = fstat64(file.Get(), &locked) == 0 &&
                      (stat64(name.c_str(), &named) != 0 || locked.st_dev != named.st_dev ||
                       locked.st_ino != named.st_ino);
    return gone ? Lock::Gone : Lock::Held;
}

/// Opens a file that no other thread or process writes.
/// @return no descriptor if that fails; errno tells why.
Descriptor OpenAlone(const std::string& name)
{
    for (;;) {
        // O_NONBLOCK: a FIFO that no process reads is refused. O_NOFOLLOW: so is a link.
        Descriptor file(open(name.c_str(),
                             O_WRONLY | O_CREAT | O_CLOEXEC | O_LARGEFILE | O_NONBLOCK | O_NOFOLLOW,
                             0666));
        const Lock lock = file.IsOpen() ? LockNamed(file, name) : Lock::Held;
        if (lock == Lock::Held) {
            return file;
        }
        if (lock == Lock::Busy) {
            errno = EWOULDBLOCK;
            return Descriptor(-1);
        }
    }
}

}  // namespace

const char* ReplaceFile(const std::string& path, std::string_view text)
{
    const std::string temporary = path + ".new";
    const std::string directory = DirectoryOf(path);
    const NoCancellation scope;

    // Closed last: the name is locked until it has become the other one.
    const Descriptor file = OpenAlone(temporary);
    if (!file.IsOpen()) {
        return "open: ";
    }
    if (ftruncate64(file.Get(), 0) != 0 || WriteAll(file, text) < text.size() || !SyncData(file) ||
        std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        unlink(temporary.c_str());
        errno = reason;
        return "write: ";
    }
    return SyncDirectory(directory) ? nullptr : "directory: ";
}

}  // namespace Tolvex::Base
