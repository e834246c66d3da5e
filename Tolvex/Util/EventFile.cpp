#include "Tolvex/Util/EventFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <string_view>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Exception/IException.h"
#include "Tolvex/Util/UtilEventName.h"

namespace Tolvex::Util {
namespace {

constexpr std::size_t stampLength = 12;
constexpr std::size_t stampEnd = eventPrefixLength + stampLength;
constexpr std::size_t mostCounterDigits = 4;  // of mostEventsPerSecond
constexpr int firstYear = 2000;
constexpr int firstYearOfTm = 1900;
constexpr char counterMark = '_';

/// The reason stands before the path, which may be too long for an exception's text.
[[noreturn]] void Fail(const std::string& reason, const std::string& path)
{
    throw IException(("Failed to create the event file: " + reason + " (" + path + ")").c_str());
}

bool CanStandInName(const std::string& part)
{
    return part.find('/') == std::string::npos && part.find('\0') == std::string::npos;
}

/// @return 0, or the error number.
int CreateExclusively(const std::string& path)
{
    // A cancellation inside open() could leave a file and an open descriptor behind.
    const Base::NoCancellation scope;
    int error = 0;
    do {
        const Base::Descriptor file(
            open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        error = file.IsOpen() ? 0 : errno;
    } while (error == EINTR);
    return error;
}

/// @return the number that digits spell; -1 for no digits, or for anything else among them.
int ReadDigits(std::string_view digits)
{
    int number = digits.empty() ? -1 : 0;
    for (const char digit : digits) {
        if (digit < '0' || digit > '9') {
            return -1;
        }
        number = 10 * number + (digit - '0');
    }
    return number;
}

/// @return the local time that the stamp tells, or -1.
std::time_t ReadStamp(std::string_view stamp)
{
    if (ReadDigits(stamp.substr(0, 6)) < 0 || ReadDigits(stamp.substr(6)) < 0) {
        return -1;
    }
    const auto field = [stamp](std::size_t position) {
        return ReadDigits(stamp.substr(position, 2));
    };
    tm local{};
    local.tm_mday = field(0);
    local.tm_mon = field(2) - 1;
    local.tm_year = field(4) + firstYear - firstYearOfTm;
    local.tm_hour = field(6);
    local.tm_min = field(8);
    local.tm_sec = field(10);
    local.tm_isdst = -1;

    const std::chrono::year_month_day date(std::chrono::year(firstYear + field(4)),
                                           std::chrono::month(static_cast<unsigned>(field(2))),
                                           std::chrono::day(static_cast<unsigned>(field(0))));
    // Second 60 is a leap second; strftime() writes it where the time zone knows of them.
    if (!date.ok() || local.tm_hour > 23 || local.tm_min > 59 || local.tm_sec > 60) {
        return -1;
    }
    return std::mktime(&local);
}

/// @return the counter that the text between stamp and full stop tells, 1 for none; 0 for no such.
int ReadCounter(std::string_view text)
{
    if (text.empty()) {
        return 1;
    }
    const int number = text.size() > 1 + mostCounterDigits ? -1 : ReadDigits(text.substr(1));
    return number > 1 && text == counterMark + std::to_string(number) ? number : 0;
}

}  // namespace

std::string CreateEventFile(const std::string& directory, const std::string& prefix,
                            const time_t& t, const std::string& extension)
{
    const std::string name = BuildEventFileName(prefix, t, extension);
    std::string path = directory;
    if (!path.empty() && path.back() != '/') {
        path += '/';
    }
    const std::size_t nameBegin = path.size();
    path += name;
    if (prefix.size() != eventPrefixLength || !CanStandInName(prefix)) {
        Fail("the prefix needs 12 characters, without a slash", path);
    }
    if (!CanStandInName(extension)) {
        Fail("the extension holds a slash or NUL", path);
    }
    if (path.find('\0') != std::string::npos) {
        Fail("the directory holds a NUL", path);
    }
    if (name.size() != stampEnd + 1 + extension.size()) {
        Fail("the time has no local date", path);
    }

    for (std::uint32_t number = 1; number <= mostEventsPerSecond; ++number) {
        std::string candidate = path;
        if (number > 1) {
            candidate.insert(nameBegin + stampEnd, counterMark + std::to_string(number));
        }
        const int error = CreateExclusively(candidate);
        if (error == 0) {
            return candidate;
        }
        if (error != EEXIST) {
            char buffer[128];
            Fail(strerror_r(error, buffer, sizeof buffer), candidate);
        }
    }
    Fail("the second has 9999 events already", path);
}

bool ReadEventFileName(const std::string& name, EventFileName& parts)
{
    const std::size_t stop = std::min(name.find('.', std::min(stampEnd, name.size())), name.size());
    if (stop == name.size() || !CanStandInName(name)) {
        return false;
    }
    const std::string_view text = name;
    const std::time_t time = ReadStamp(text.substr(eventPrefixLength, stampLength));
    const int number = ReadCounter(text.substr(stampEnd, stop - stampEnd));
    if (time == -1 || number == 0) {
        return false;
    }
    parts = {name.substr(0, eventPrefixLength), time, static_cast<std::uint32_t>(number),
             name.substr(stop + 1)};
    return true;
}

}  // namespace Tolvex::Util
