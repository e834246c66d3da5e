#include "Tolvex/Util/DriveRecord.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/ReplaceFile.h"
#include "Tolvex/Exception/IException.h"

namespace Tolvex::Util {
namespace {

// The file: the first line, one of the ends, "overran " and a name for each, and the sum of all
// that stands before it.
constexpr std::string_view firstLine = "drive record 1\n";
constexpr std::string_view namePrefix = "overran ";
constexpr std::string_view sumPrefix = "sum ";
constexpr std::array<std::pair<DriveEnd, std::string_view>, 3> ends = {
    {{DriveEnd::Died, "died\n"},
     {DriveEnd::Stopped, "stopped\n"},
     {DriveEnd::IgnitionOff, "ignition off\n"}}};
constexpr std::size_t mostBytes = 65536;

[[noreturn]] void Fail(const std::string& step, int reason)
{
    char buffer[128];
    const std::string text = reason == 0 ? "" : strerror_r(reason, buffer, sizeof buffer);
    throw IException(("Failed to write the drive record: " + step + text).c_str());
}

/// FNV-1a.
std::string SumOf(std::string_view text)
{
    std::uint32_t sum = 2166136261U;
    for (const char character : text) {
        sum = (sum ^ static_cast<unsigned char>(character)) * 16777619U;
    }
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08x", sum);
    return digits;
}

bool TakeFront(std::string_view& text, std::string_view front)
{
    if (!text.starts_with(front)) {
        return false;
    }
    text.remove_prefix(front.size());
    return true;
}

DriveRecord Parse(std::string_view text)
{
    DriveRecord unreadable{DriveEnd::Unreadable, {}};
    const std::size_t sumLine = sumPrefix.size() + 9;
    if (text.size() < sumLine) {
        return unreadable;
    }
    const std::string_view summed = text.substr(0, text.size() - sumLine);
    if (text.substr(summed.size()) != std::string(sumPrefix) + SumOf(summed) + "\n") {
        return unreadable;
    }

    text = summed;
    DriveRecord record = unreadable;
    if (!TakeFront(text, firstLine)) {
        return unreadable;
    }
    for (const auto& [end, line] : ends) {
        if (record.end == DriveEnd::Unreadable && TakeFront(text, line)) {
            record.end = end;
        }
    }
    while (!text.empty()) {
        const std::size_t length = text.find('\n');
        if (!TakeFront(text, namePrefix) || length == std::string_view::npos) {
            return unreadable;
        }
        record.overran.emplace_back(text.substr(0, length - namePrefix.size()));
        text.remove_prefix(length - namePrefix.size() + 1);
    }
    return record.end == DriveEnd::Unreadable ? unreadable : record;
}

std::string Compose(const DriveRecord& record)
{
    std::string text(firstLine);
    for (const auto& [end, line] : ends) {
        if (record.end == end) {
            text += line;
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
    const std::string sum = SumOf(text);
    text.append(sumPrefix).append(sum).append("\n");
    if (text.size() > mostBytes) {
        Fail("the names are too long", 0);
    }
    return text;
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
    for (;;) {
        const ssize_t part = read(file.Get(), text.data() + length, text.size() - length);
        if (part < 0 && errno == EINTR) {
            continue;
        }
        if (part < 0) {
            return {DriveEnd::Unreadable, {}};
        }
        if (part == 0) {
            break;
        }
        length += static_cast<std::size_t>(part);
    }
    return length > mostBytes ? DriveRecord{DriveEnd::Unreadable, {}}
                              : Parse(std::string_view(text).substr(0, length));
}

void WriteDriveRecord(const std::string& path, const DriveRecord& record)
{
    const char* const failedStep = Base::ReplaceFile(path, Compose(record));
    if (failedStep != nullptr) {
        Fail(failedStep, errno);
    }
}

}  // namespace Tolvex::Util
