#include "Tolvex/Util/UtilTime.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "Tolvex/Base/Private/Saturate.h"
#include "Tolvex/Base/Private/TimeZone.h"

namespace Tolvex::Util {
namespace {

constexpr int firstYearOfTm = 1900;
constexpr double secondsPerDay = 86400.0;
constexpr std::size_t usualTextBytes = 128;
constexpr std::size_t longestTextBytes = std::size_t{16} * 1024 * 1024;

/// Reads a number without a sign. It saturates at the largest int on every platform.
int ReadNumber(const char* token)
{
    constexpr long highest = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(std::strtol(token, nullptr, 10), 0L, highest));
}

// The compiler cannot check a format that is not a literal; the callers of Date() choose it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

/// Formats a time whose text is longer than usual, or empty: strftime() returns 0 in both cases.
std::string FormatAtLength(const tm& local, const std::string& format)
{
    // With a character in front the text is never empty, so 0 means too long. At the end of the
    // format the character could complete a conversion.
    const std::string marked = "x" + format;

    std::string text;
    for (std::size_t capacity = 2 * usualTextBytes; capacity <= longestTextBytes; capacity *= 2) {
        text.resize(capacity);
        const std::size_t length = std::strftime(text.data(), capacity, marked.c_str(), &local);
        if (length > 0) {
            return text.substr(1, length - 1);
        }
    }
    return {};
}

std::string Format(const tm& local, const std::string& format)
{
    std::array<char, usualTextBytes> text;
    const std::size_t length = std::strftime(text.data(), text.size(), format.c_str(), &local);
    return length > 0 ? std::string(text.data(), length) : FormatAtLength(local, format);
}

#pragma GCC diagnostic pop

}  // namespace

time_t Str2Time(const std::string& text)
{
    // Required: changes the caller's characters, although they are const.
    char* rest = const_cast<char*>(text.c_str());

    std::array<int, 6> numbers{};
    char* state = nullptr;
    for (int& number : numbers) {
        const char* const token = strtok_r(rest, " ,.-:", &state);
        if (token == nullptr) {
            return -1;
        }
        number = ReadNumber(token);
        rest = nullptr;
    }

    // Required: nothing is checked. A field without a number is 0, and numbers out of range carry
    // over.
    tm local{};
    local.tm_year = numbers[0] - firstYearOfTm;
    local.tm_mon = numbers[1] - 1;
    local.tm_mday = numbers[2];
    local.tm_hour = numbers[3];
    local.tm_min = numbers[4];
    local.tm_sec = numbers[5];
    local.tm_isdst = -1;
    return std::mktime(&local);
}

int DayDiff(const time_t& from, const time_t& to)
{
    return Base::SaturateToInt32(std::difftime(to, from) / secondsPerDay);
}

bool IsValidDate(const time_t& t)
{
    tm local{};
    if (localtime_r(&t, &local) == nullptr) {
        return false;
    }
    // Required: only the years 2018 to 2025 are valid. Later years are not, on purpose.
    constexpr unsigned firstYear = 2018 - firstYearOfTm;
    constexpr unsigned years = 8;
    return static_cast<unsigned>(local.tm_year) - firstYear < years;
}

time_t GetDateTime(const time_t& date, const time_t& time)
{
    tm day{};
    tm clock{};
    if (localtime_r(&date, &day) == nullptr || localtime_r(&time, &clock) == nullptr) {
        return -1;
    }

    tm local{};
    local.tm_sec = clock.tm_sec;
    local.tm_min = clock.tm_min;
    local.tm_hour = clock.tm_hour;
    local.tm_mday = day.tm_mday;
    local.tm_mon = day.tm_mon;
    local.tm_year = day.tm_year;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

std::string Date(const time_t& t, std::string format)
{
    if (format.empty()) {
        // Required text: there is no blank after the comma.
        format = "%a,%d %b %y %T%z";
    }

    tm local{};
    return localtime_r(&t, &local) != nullptr ? Format(local, format) : std::string();
}

std::string NewDate(std::string format)
{
    return Date(std::time(nullptr), std::move(format));
}

std::string DateISO(const time_t& t)
{
    return Date(t, "%Y-%m-%d %H:%M:%S");
}

void RefreshTimeZone()
{
    Base::RefreshTimeZone();
}

}  // namespace Tolvex::Util
