#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <tuple>

#include "examples/dashcam/Types.h"

namespace Dashcam {

/// The folder with the clips. A clip under its final name is complete, and so are the files that
/// belong to it. The oldest events make room for new ones.
///
/// A file is written under a name that ends in ".part", flushed to the medium, and renamed. The
/// clip is the last of an event's files, so an event has all its files whenever the power fails.
/// @par Errors
/// Reserve(), Save() and Write() throw Tolvex::IException with the reason. All throw std::bad_alloc
/// without memory.
/// @par Thread safety
/// Thread-safe, except that the caller saves one event at a time. Each operation blocks as long as
/// the disk does.
class Folder
{
public:
    /// Time, number in its second, and name without extension of an event. Sorts from the oldest
    /// event.
    using StoredEvent = std::tuple<std::time_t, std::uint32_t, std::string>;

    /// @param where   Its path. While it does not exist, nothing can be written.
    /// @param configured  Must outlive the object.
    Folder(const std::string& where, const Settings& configured);

    /// Removes what an earlier drive has left unfinished.
    void ClearLeftovers();

    /// @return a name for the files of an event, without extension. No other event gets it while
    /// the files exist.
    std::string Reserve(std::time_t time);
    /// Writes the files of an event, after the oldest events have made room for them. May leave
    /// some when it throws.
    /// @param name   From Reserve().
    /// @param files  The bytes of the file for each extension.
    void Save(const std::string& name, const std::map<std::string, std::string>& files);
    /// Removes the files of an event. Needs no memory.
    /// @return how many bytes they had.
    std::uintmax_t Remove(const std::string& name) noexcept;
    /// Writes or replaces one file.
    void Write(const std::string& fileName, const std::string& bytes);
    /// @return the content of a file; empty when it cannot be read or is larger than any side file.
    std::string Read(const std::string& fileName) const;

    /// @return all events.
    std::set<StoredEvent> Events() const;
    /// Removes the oldest events until folder and disk are within their limits.
    /// @param bytes  That are to be written.
    void MakeRoom(std::uintmax_t bytes);
    /// @return whether the folder was a mount point at the start and is none now. What is under a
    /// mount point is not the disk.
    bool IsAway() const;
    /// @return the path of a file in the folder.
    std::string Path(const std::string& fileName) const { return path + '/' + fileName; }

private:
    void RequireDisk() const;

    const std::string path;
    const Settings& settings;
    const bool isMountPoint;  ///< it was one at the start
    std::mutex roomMutex;     ///< held in MakeRoom(): two callers would both remove an event
};

}  // namespace Dashcam
