#include "Tolvex/Util/UtilEventName.h"

#include <cstddef>
#include <cstdlib>

#include "Tolvex/Util/UtilTime.h"

namespace Tolvex::Util {
namespace {

// Positions of the fields of two characters, behind a prefix of 12 characters.
constexpr std::size_t dayPosition = 12;
constexpr std::size_t monthPosition = 14;
constexpr std::size_t yearPosition = 16;
constexpr std::size_t hourPosition = 18;
constexpr std::size_t minutePosition = 20;

/// @param position  At most the length of the name.
/// @return the number. A field that is missing, or has no number, reads as 0.
int ReadField(const std::string& name, std::size_t position)
{
    const std::string field = name.substr(position, 2);
    return static_cast<int>(std::strtol(field.c_str(), nullptr, 10));
}

}  // namespace

std::string EventTimeToString(const time_t& t)
{
    return Date(t, "%d%m%y%H%M%S");
}

std::string BuildEventFileName(const std::string& prefix, const time_t& t,
                               const std::string& extension)
{
    return prefix + EventTimeToString(t) + "." + extension;
}

bool GetEventTimeFromFileName(const std::string& name, time_t& t)
{
    // Required: a name that ends after the hour is accepted. Its minute is 0.
    if (name.size() < minutePosition) {
        return false;
    }

    tm local{};
    local.tm_mday = ReadField(name, dayPosition);
    local.tm_mon = ReadField(name, monthPosition) - 1;
    local.tm_year = ReadField(name, yearPosition) + 100;
    local.tm_hour = ReadField(name, hourPosition);
    local.tm_min = ReadField(name, minutePosition);
    // Required: the second is read from the position of the minute.
    local.tm_sec = ReadField(name, minutePosition);
    local.tm_isdst = -1;
    t = std::mktime(&local);
    return true;
}

}  // namespace Tolvex::Util
