#include "Tolvex/Log/Private/FileSync.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <unistd.h>
#include <utility>

#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/Private/Sleep.h"

namespace Tolvex::Ilog {

using Clock = std::chrono::steady_clock;

namespace {

/// A sleeping thread notices a shorter interval after this time at the latest.
constexpr std::chrono::milliseconds longestSleep(100);

}  // namespace

FileSync::FileSync(std::string filePath, std::shared_ptr<const FileSettings> fileSettings)
    : path(std::move(filePath)),
      directory(Base::DirectoryOf(path)),
      settings(std::move(fileSettings))
{
}

void FileSync::AfterLine(const Base::Descriptor& file,
                         const std::optional<Base::FileStatus>& before)
{
    const bool fileIsNew = before && (before->size == 0 || !known || !known->IsSameFile(*before));
    known = before;
    if (fileIsNew) {
        ++newFiles;
    }

    const LogDurability mode = settings->durability;
    if (settings->ignitionOff || mode == LogDurability::EachLine ||
        (mode == LogDurability::Interval && settings->interval.load().count() <= 0)) {
        SyncNow(file);
    } else if (mode == LogDurability::Interval) {
        Start(file);
    }
}

/// Leaves the line to a thread that syncs the file in time.
void FileSync::Start(const Base::Descriptor& file)
{
    const pid_t process = getpid();
    if (std::abs(threadOf.exchange(-process)) == process) {
        return;
    }
    std::unique_ptr<std::shared_ptr<FileSync>> self(
        new (std::nothrow) std::shared_ptr<FileSync>(shared_from_this()));
    pthread_t handle = 0;
    if (self != nullptr && Base::StartDetachedThread(handle, "LOG_SYNC", SyncLater, self.get(),
                                                     Base::SignalHandlers::Blocked) == 0) {
        static_cast<void>(self.release());  // owned by the thread
        return;
    }
    threadOf = 0;
    SyncNow(file);
}

void* FileSync::SyncLater(void* argument)
{
    const std::unique_ptr<std::shared_ptr<FileSync>> owner(
        static_cast<std::shared_ptr<FileSync>*>(argument));
    FileSync& self = **owner;
    const pid_t process = getpid();
    pid_t noLineWaits = 0;
    do {
        self.AwaitInterval();
        // A line that is written from here on waits for the next sync.
        self.threadOf = process;
        const Base::Descriptor file(open64(self.path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        if (file.IsOpen()) {
            self.SyncNow(file);
        }
        noLineWaits = process;
    } while (!self.threadOf.compare_exchange_strong(noLineWaits, 0));
    return nullptr;
}

void FileSync::AwaitInterval() const
{
    const Clock::time_point start = Clock::now();
    for (;;) {
        const auto slept = std::chrono::floor<std::chrono::milliseconds>(Clock::now() - start);
        const std::chrono::milliseconds interval = settings->interval;
        if (slept >= interval) {
            return;
        }
        Base::SleepFor(std::min(interval - slept, longestSleep));
    }
}

/// Allocates nothing. A failure is not reported: the next line tries again.
void FileSync::SyncNow(const Base::Descriptor& file)
{
    Base::SyncData(file);
    // Updated only after the sync: a thread that syncs at the same time must wait for the directory
    // too.
    const unsigned seen = newFiles;
    if (seen != syncedFiles && Base::SyncDirectory(directory)) {
        syncedFiles = seen;
    }
}

}  // namespace Tolvex::Ilog
