/// @file
/// When the lines of a file reach the medium.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/SharedFile.h"
#include "Tolvex/Log/Private/FileSettings.h"

namespace Tolvex::Ilog {

/// Syncs a file as LogDurability says.
///
/// For LogDurability::Interval the first line that waits starts a thread. The thread sleeps, opens
/// the file, syncs it, and ends if no line has come meanwhile. So an object has at most one thread,
/// and none while no line waits. The writer does not sync the file itself, because a sync of a card
/// can take seconds (docs/log-inside.md), and every composing thread would wait for it. No lock is
/// held: a fork at any moment leaves nothing locked in the child.
/// @par Thread safety
/// Caller serialises. Held by std::shared_ptr: the thread may outlive the policy.
class FileSync : public std::enable_shared_from_this<FileSync>
{
public:
    /// @param filePath      Of the file.
    /// @param fileSettings  Read for every line.
    FileSync(std::string filePath, std::shared_ptr<const FileSettings> fileSettings);

    /// After a line, or a part of one, was written. Call unless the durability is None.
    /// @param file    The file that it was written to.
    /// @param before  The file before the line; nothing if it is not a regular one.
    void AfterLine(const Base::Descriptor& file, const std::optional<Base::FileStatus>& before);

private:
    void Start(const Base::Descriptor& file);
    void SyncNow(const Base::Descriptor& file);
    void AwaitInterval() const;
    static void* SyncLater(void* argument);

    const std::string path;
    const std::string directory;  ///< of the file
    const std::shared_ptr<const FileSettings> settings;
    std::optional<Base::FileStatus> known;  ///< the file of the line before
    std::atomic<unsigned> newFiles = 0;     ///< how many times a line went to an unknown file
    std::atomic<unsigned> syncedFiles = 0;  ///< newFiles at the last sync of the directory

    /// The process that has a thread for the file: negative while lines wait, 0 for none. In a
    /// forked child it still names the parent, so the child starts a thread of its own.
    std::atomic<pid_t> threadOf = 0;
};

}  // namespace Tolvex::Ilog
