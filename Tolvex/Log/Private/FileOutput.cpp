#include "Tolvex/Log/Private/FileOutput.h"

#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "Tolvex/Base/Private/Descriptor.h"

namespace Tolvex::Ilog {

FileOutput::FileOutput(const std::string& filePath,
                       const std::shared_ptr<const FileSettings>& fileSettings,
                       const FileOutput* before)
    : path(filePath),
      settings(fileSettings),
      rotation(filePath, fileSettings),
      sync(std::make_shared<FileSync>(filePath, fileSettings)),
      torn(before == nullptr ? std::nullopt : before->torn)
{
}

void FileOutput::RepairEnd()
{
    anyEnd = true;
}

void FileOutput::Append(const std::string& line)
{
    // The torn file may have been moved away; then it keeps its mark.
    const bool tornPossible = anyEnd || (torn && torn->IsSameFile(Base::FileStatus::Of(path)));
    // Required: opens and closes the file for every line, so others may move, delete or truncate it
    // at any time.
    const Base::Descriptor file = rotation.Open(line.size() + (tornPossible ? 1 : 0));
    if (!file.IsOpen()) {
        return;  // The line is lost. This is not reported.
    }
    const bool syncing = settings->durability != LogDurability::None;
    const std::optional<Base::FileStatus> before =
        tornPossible || syncing ? Base::FileStatus::Of(file) : std::nullopt;
    const bool newLineFirst = tornPossible && before && (anyEnd || torn->IsSameFile(*before)) &&
                              EndsInTheMiddleOfALine(*before);

    const std::string repaired = newLineFirst ? '\n' + line : std::string();
    const std::string_view text = newLineFirst ? repaired : line;
    const std::size_t written = Base::WriteAll(file, text);
    rotation.Unlock(file);

    anyEnd = anyEnd && written == 0;
    if (written != 0 && written != text.size()) {
        torn = Base::FileStatus::Of(file);
    } else if (written != 0 && torn && torn->IsSameFile(before)) {
        torn.reset();
    }
    if (syncing) {
        sync->AfterLine(file, before);
    }
}

/// @return whether the last byte of the file is not a newline.
bool FileOutput::EndsInTheMiddleOfALine(const Base::FileStatus& file) const
{
    const Base::Descriptor opened(
        open64(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));  // No wait for a FIFO
    char last = '\n';
    return file.IsSameFile(Base::FileStatus::Of(opened)) &&
           lseek64(opened.Get(), -1, SEEK_END) >= 0 && read(opened.Get(), &last, 1) == 1 &&
           last != '\n';
}

}  // namespace Tolvex::Ilog
