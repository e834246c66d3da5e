/// @file
/// One log file, and what is known about it from one line to the next.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Tolvex/Base/Private/SharedFile.h"
#include "Tolvex/Log/Private/FileRotation.h"
#include "Tolvex/Log/Private/FileSettings.h"
#include "Tolvex/Log/Private/FileSync.h"

namespace Tolvex::Ilog {

/// Appends lines to a file, which is opened and closed for every line.
/// @par Thread safety
/// Caller serialises. Held by std::shared_ptr: a system call that hangs may outlast the policy.
class FileOutput
{
public:
    /// @param filePath      Of the file.
    /// @param fileSettings  Read for every line.
    FileOutput(const std::string& filePath,
               const std::shared_ptr<const FileSettings>& fileSettings);

    /// As FileLogPolicy::Write().
    void Append(const std::string& line);

    /// As FileLogPolicy::RepairEnd().
    void RepairEnd();

private:
    bool EndsInTheMiddleOfALine(const Base::FileStatus& file) const;

    const std::string path;
    const std::shared_ptr<const FileSettings> settings;
    FileRotation rotation;
    const std::shared_ptr<FileSync> sync;  ///< shared with its thread
    bool tornPossible = false;             ///< a file may end in a part of a line
    std::optional<Base::FileStatus> torn;  ///< that file; nothing: any file
};

}  // namespace Tolvex::Ilog
