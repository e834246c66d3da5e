#include "Tolvex/Util/DriveRecord.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <sstream>
#include <string_view>
#include <unistd.h>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/ErrorText.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/ReplaceFile.h"
#include "Tolvex/Exception/IException.h"

namespace Tolvex::Util {
namespace {

// The lines of the file: the first line, the end, and "overran " and a name for each late
// participant. The file holds them twice, so that damage shows as a difference.
constexpr std::string_view firstLine = "drive record 1\n";
constexpr std::string_view namePrefix = "overran ";
// Indexed by DriveEnd. None and Unreadable are never written.
constexpr std::array<std::string_view, 5> ends = {"", "", "died", "stopped", "ignition off"};
constexpr std::size_t mostBytes = 131072;  // of the file

[[noreturn]] void Fail(const std::string& reason)
{
    throw IException(("Failed to write the drive record: " + reason).c_str());
}

std::string Compose(const DriveRecord& record)
{
    const auto end = static_cast<std::size_t>(record.end);
    if (end >= ends.size() || ends[end].empty()) {
        Fail("the end is not Died, Stopped or IgnitionOff");
    }
    std::string text(firstLine);
    text.append(ends[end]).append("\n");
    for (const std::string& name : record.overran) {
        if (name.find('\n') != std::string::npos) {
            Fail("a name has a line break");
        }
        text.append(namePrefix).append(name).append("\n");
    }
    text += text;
    if (text.size() > mostBytes) {
        Fail("the names are too long");
    }
    return text;
}

/// Parses a record. The text is valid only if the result composes to exactly the same text.
DriveRecord Parse(const std::string& text)
{
    std::istringstream lines(text.substr(0, text.size() / 2));
    lines.exceptions(std::ios_base::badbit);  // Without memory the record is not unreadable.
    DriveRecord record;
    std::string line;
    std::getline(lines, line);
    std::getline(lines, line);  // the second line: the end
    record.end = static_cast<DriveEnd>(std::find(ends.begin(), ends.end(), line) - ends.begin());
    while (std::getline(lines, line)) {
        record.overran.push_back(line.substr(std::min(line.size(), namePrefix.size())));
    }
    try {
        if (Compose(record) == text) {
            return record;
        }
    } catch (const IException&) {
        // The file holds something else.
    }
    return {DriveEnd::Unreadable, {}};
}

}  // namespace

DriveRecord ReadDriveRecord(const std::string& path)
{
    const Base::NoCancellation scope;
    const Base::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen()) {
        return {errno == ENOENT ? DriveEnd::None : DriveEnd::Unreadable, {}};
    }
    std::string text(mostBytes + 1, '\0');
    std::size_t length = 0;
    ssize_t part = 0;
    do {
        part = read(file.Get(), text.data() + length, text.size() - length);
        length += part > 0 ? static_cast<std::size_t>(part) : 0;
    } while (part > 0 || (part < 0 && errno == EINTR));
    text.resize(length);
    return Parse(text);
}

void WriteDriveRecord(const std::string& path, const DriveRecord& record)
{
    const char* const failedStep = Base::ReplaceFile(path, Compose(record));
    if (failedStep != nullptr) {
        Fail(failedStep + Base::ErrorText(errno));
    }
}

}  // namespace Tolvex::Util
