#include "Tolvex/Log/Private/LineHeader.h"

#include <algorithm>
#include <charconv>
#include <mutex>
#include <string>
#include <string_view>

#include "Tolvex/Base/Private/TimeZone.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Util/TemperatureMonitor.h"
#include "Tolvex/Util/UtilTime.h"

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
        const std::string time = Util::Date(now, "[%Y-%m-%d %H:%M:%S]");
        timeLength = time.copy(text.data(), text.size() / 2);
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
