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
    /// @param before        The output before; takes over which file ends in a torn line. May be
    ///                      null.
    FileOutput(const std::string& filePath, const std::shared_ptr<const FileSettings>& fileSettings,
               const FileOutput* before);

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
    bool anyEnd = false;                   ///< RepairEnd(): the end of any file is looked at
    std::optional<Base::FileStatus> torn;  ///< the last file in which a line was torn
};

}  // namespace Tolvex::Ilog
