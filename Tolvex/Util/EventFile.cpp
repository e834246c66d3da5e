#include "Tolvex/Util/EventFile.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <string_view>

#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/ErrorText.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Exception/IException.h"
#include "Tolvex/Util/UtilEventName.h"

namespace Tolvex::Util {
namespace {

constexpr std::size_t stampLength = 12;
constexpr std::size_t stampEnd = eventPrefixLength + stampLength;
constexpr int firstYear = 2000;
constexpr int firstYearOfTm = 1900;

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

/// @return what stands between the stamp and the full stop of a name.
std::string CounterText(std::uint32_t number)
{
    return number == 1 ? "" : std::string("_").append(std::to_string(number));
}

/// @return the counter with that text, or 0.
std::uint32_t ReadCounter(std::string_view text)
{
    std::uint32_t number = 1;  // Stays 1 without a number, or with one that is too large.
    if (!text.empty()) {
        std::from_chars(text.data() + 1, text.data() + text.size(), number);
    }
    return number <= mostEventsPerSecond && text == CounterText(number) ? number : 0;
}

/// @return the local time that the stamp tells, or -1.
std::time_t ReadStamp(std::string_view stamp)
{
    if (stamp.find_first_not_of("0123456789") != std::string_view::npos) {
        return -1;
    }
    const auto field = [stamp](std::size_t position) {
        return 10 * (stamp[position] - '0') + (stamp[position + 1] - '0');
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
        candidate.insert(nameBegin + stampEnd, CounterText(number));
        const int error = CreateExclusively(candidate);
        if (error == 0) {
            return candidate;
        }
        if (error != EEXIST) {
            Fail(Base::ErrorText(error), candidate);
        }
    }
    Fail("the second has 9999 events already", path);
}

bool ReadEventFileName(const std::string& name, EventFileName& parts)
{
    const std::size_t stop = name.find('.', stampEnd);
    if (stop == std::string::npos || !CanStandInName(name)) {
        return false;
    }
    const std::string_view text = name;
    const std::time_t time = ReadStamp(text.substr(eventPrefixLength, stampLength));
    const std::uint32_t number = ReadCounter(text.substr(stampEnd, stop - stampEnd));
    if (time == -1 || number == 0) {
        return false;
    }
    parts = {name.substr(0, eventPrefixLength), time, number, name.substr(stop + 1)};
    return true;
}

}  // namespace Tolvex::Util
