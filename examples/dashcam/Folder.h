#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "examples/dashcam/Settings.h"

namespace Dashcam {

/// The files of one event.
struct Recording
{
    std::string clip;   ///< MP4
    std::string still;  ///< JPEG
    std::string side;   ///< JSON
    std::string signature;
};

/// The folder with the clips. A file under its final name is complete. The oldest events make room
/// for new ones.
///
/// A file is written under a name that ends in ".part", flushed to the medium, and renamed. The
/// clip is the last of an event's files, so all belongs together whenever the power fails.
/// @par Errors
/// Operations that write throw Tolvex::IException with the reason. Nothing of the event is left
/// then.
/// @par Thread safety
/// Thread-safe. Each operation blocks as long as the disk does.
class Folder
{
public:
    /// @param path      Made if it does not exist.
    /// @param settings  Must outlive the object.
    Folder(std::string path, const Settings& settings);

    /// Removes what an earlier drive has left unfinished.
    void ClearLeftovers();

    /// @return a name for the files of an event, without extension. It belongs to the caller, until
    /// Save() or Release().
    std::string Reserve(std::time_t time);
    /// Gives a name back.
    void Release(const std::string& name);
    /// Writes the files of an event, after the oldest events have made room for them.
    void Save(const std::string& name, const Recording& recording);
    /// Replaces one file that belongs to no event.
    void Write(const std::string& fileName, const std::string& bytes);

    /// @return the names of all events without extension, the newest first.
    std::vector<std::string> Events() const;
    /// Removes the oldest events until folder and disk are within their limits.
    void KeepLimits();
    /// @return the path of a file in the folder.
    std::string Path(const std::string& fileName) const { return path + '/' + fileName; }

private:
    void RequireDisk() const;
    void MakeRoom(std::uintmax_t bytes);
    void Remove(const std::string& name);
    std::uintmax_t Size() const;

    const std::string path;
    const Settings& settings;
    bool isMountPoint = false;  ///< it was one at the start
    std::mutex mutex;           ///< one event is written at a time
};

}  // namespace Dashcam
