#include "Tolvex/Base/Private/ReplaceFile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/NoCancellation.h"

namespace Tolvex::Base {

namespace {

/// Waits until no other thread or process writes the file.
/// @return false when the name stands for another file by now, or for none.
bool LockNamed(const Descriptor& file, const std::string& name)
{
    while (flock(file.Get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            return true;  // Best effort: not every file system has locks.
        }
    }
    struct stat64 locked;
    struct stat64 named;
    return fstat64(file.Get(), &locked) != 0 ||
           (stat64(name.c_str(), &named) == 0 && locked.st_ino == named.st_ino);
}

/// Opens a file that no other thread or process writes, and empties it.
Descriptor OpenAlone(const std::string& name)
{
    for (;;) {
        // O_NONBLOCK: a FIFO that no process reads is refused.
        Descriptor file(
            open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_LARGEFILE | O_NONBLOCK, 0666));
        if (!file.IsOpen() || LockNamed(file, name)) {
            return file;
        }
    }
}

}  // namespace

const char* ReplaceFile(const std::string& path, std::string_view text)
{
    const std::string temporary = path + ".new";
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
    return SyncDirectory(DirectoryOf(path)) ? nullptr : "directory: ";
}

}  // namespace Tolvex::Base
