#include "Tolvex/Base/Private/ReplaceFile.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <unistd.h>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/SharedFile.h"

namespace Tolvex::Base {

namespace {

constexpr std::chrono::milliseconds longestWaitForLock(5000);  // of a process that hangs

/// Opens a file that no other thread or process writes.
/// @return no descriptor if that fails; errno tells why.
Descriptor OpenAlone(const std::string& name)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + longestWaitForLock;
    for (;;) {
        // O_NONBLOCK: a FIFO that no process reads is refused. O_NOFOLLOW: so is a link.
        Descriptor file(open(name.c_str(),
                             O_WRONLY | O_CREAT | O_CLOEXEC | O_LARGEFILE | O_NONBLOCK | O_NOFOLLOW,
                             0666));
        // Best effort with any other error: not every file system has locks.
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (file.IsOpen() && !LockFile(file, LOCK_EX, left) && errno == EWOULDBLOCK) {
            return Descriptor(-1);
        }
        const std::optional<FileStatus> status = FileStatus::Of(file);
        if (!status || status->IsSameFile(FileStatus::Of(name))) {
            return file;
        }
    }
}

}  // namespace

const char* ReplaceFile(const std::string& path, std::string_view text)
{
    if (path.find('\0') != std::string::npos) {
        errno = EINVAL;  // The system would take the path itself for the temporary file.
        return "open: ";
    }
    const std::string temporary = path + ".new";
    const std::string directory = DirectoryOf(path);
    const NoCancellation scope;

    // Closed last, because closing unlocks it: it stays locked until it has its final name.
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
