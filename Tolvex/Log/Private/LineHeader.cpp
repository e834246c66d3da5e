#include "Tolvex/Log/Private/LineHeader.h"

#include <algorithm>
#include <charconv>
#include <mutex>
#include <string_view>

#include "Tolvex/Base/Private/TimeZone.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Util/TemperatureMonitor.h"

namespace Tolvex::Ilog {

void LineHeader::InsertInto(std::ostream& stream, LogType type)
{
    const std::time_t now = std::time(nullptr);
    // The C library's global may be written by tzset() on another thread.
    if (now != second || Base::LoadShared(timezone) != zone ||
        Base::TimeZoneGeneration() != zoneGeneration) {
        const std::unique_lock<std::mutex> lock = Base::LockAgainstForks();
        monitor = Util::TemperatureMonitor::GetInstance();
        const auto generation = Base::TimeZoneGeneration();
        tm local{};
        // Not by Util::Date(): no line needs memory for its header. The time is missing when its
        // year does not fit into an int.
        timeLength = localtime_r(&now, &local) == nullptr
                         ? 0
                         : std::strftime(text.data(), text.size(), "[%Y-%m-%d %H:%M:%S]", &local);
        second = now;
        zoneGeneration = generation;
        zone = Base::LoadShared(timezone);
    }

    char* end = text.data() + timeLength;
    if (monitor->GetTemperatureAvailable()) {
        *end++ = '[';
        end = std::to_chars(end, text.end(), monitor->GetTemperature()).ptr;
        *end++ = 'C';
        *end++ = ']';
    }
    const std::string_view tag = type == LogType::Error     ? "[ERROR]"
                                 : type == LogType::Warning ? "[WARNING]"
                                                            : "";
    end = std::copy(tag.begin(), tag.end(), end);
    stream.write(text.data(), end - text.data());
}

}  // namespace Tolvex::Ilog
