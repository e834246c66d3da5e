#include "Tolvex/Util/DriveRecord.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/ErrorText.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/ReplaceFile.h"
#include "Tolvex/Exception/IException.h"

namespace Tolvex::Util {
namespace {

// The lines of the file: the first line, one of the ends, "overran " and a name for each late
// participant, and the sum of all lines before it.
constexpr std::string_view firstLine = "drive record 1\n";
constexpr std::string_view namePrefix = "overran ";
constexpr std::array<std::pair<DriveEnd, std::string_view>, 3> ends = {
    {{DriveEnd::Died, "died"},
     {DriveEnd::Stopped, "stopped"},
     {DriveEnd::IgnitionOff, "ignition off"}}};
constexpr std::size_t mostBytes = 65536;

[[noreturn]] void Fail(const std::string& step, int reason)
{
    const std::string text = reason == 0 ? "" : Base::ErrorText(reason);
    throw IException(("Failed to write the drive record: " + step + text).c_str());
}

/// @return the last line of a record: the FNV-1a sum of those before.
std::string SumLine(std::string_view text)
{
    std::uint32_t sum = 2166136261U;
    for (const char character : text) {
        sum = (sum ^ static_cast<unsigned char>(character)) * 16777619U;
    }
    char line[14];
    std::snprintf(line, sizeof line, "sum %08x\n", sum);
    return line;
}

std::string Compose(const DriveRecord& record)
{
    std::string text(firstLine);
    for (const auto& [end, word] : ends) {
        if (record.end == end) {
            text.append(word).append("\n");
        }
    }
    if (text.size() == firstLine.size()) {
        Fail("it tells no end of a drive", 0);
    }
    for (const std::string& name : record.overran) {
        if (name.find('\n') != std::string::npos) {
            Fail("a name has a line break", 0);
        }
        text.append(namePrefix).append(name).append("\n");
    }
    text += SumLine(text);
    if (text.size() > mostBytes) {
        Fail("the names are too long", 0);
    }
    return text;
}

/// Reads the lines that it knows. The text is a record only if the result composes to exactly this
/// text.
DriveRecord Parse(const std::string& text)
{
    DriveRecord record;
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // Without memory the record is not unreadable.
    for (std::string line; std::getline(lines, line);) {
        for (const auto& [end, word] : ends) {
            if (line == word) {
                record.end = end;
            }
        }
        if (line.starts_with(namePrefix)) {
            record.overran.push_back(line.substr(namePrefix.size()));
        }
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
        Fail(failedStep, errno);
    }
}

}  // namespace Tolvex::Util
