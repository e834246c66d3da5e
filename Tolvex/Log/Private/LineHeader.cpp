#include "Tolvex/Log/Private/LineHeader.h"

#include <charconv>
#include <mutex>
#include <string>
#include <string_view>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Util/TemperatureMonitor.h"
#include "Tolvex/Util/UtilTime.h"

namespace Tolvex::Ilog {

namespace {

constinit std::mutex refreshMutex;  // held while a time is broken down, and during a fork

/// @return the end of the text after the piece was added.
char* Append(char* end, std::string_view piece)
{
    return end + piece.copy(end, piece.size());
}

std::string_view TagOf(LogType type)
{
    switch (type) {
        case LogType::Error:
            return "[ERROR]";
        case LogType::Warning:
            return "[WARNING]";
        case LogType::Info:
        case LogType::Notice:
            break;
    }
    return {};
}

}  // namespace

void LineHeader::InsertInto(std::ostream& stream, LogType type)
{
    const std::time_t now = std::time(nullptr);
    // The C library's global may be written by tzset() on another thread.
    if (now != second || timeLength == 0 || Base::LoadShared(timezone) != zone) {
        Refresh(now);
    }

    char* end = text.data() + timeLength;
    if (monitor->GetTemperatureAvailable()) {
        *end++ = '[';
        end = std::to_chars(end, text.end(), monitor->GetTemperature()).ptr;
        end = Append(end, "C]");
    }
    end = Append(end, TagOf(type));
    stream.write(text.data(), end - text.data());
}

void LineHeader::Refresh(std::time_t now)
{
    const std::lock_guard lock(refreshMutex);
    monitor = Util::TemperatureMonitor::GetInstance();
    const std::string time = Util::Date(now, "[%Y-%m-%d %H:%M:%S]");
    timeLength = time.copy(text.data(), text.size() / 2);
    second = now;
    zone = Base::LoadShared(timezone);
}

void LineHeader::LockForFork()
{
    refreshMutex.lock();
}

void LineHeader::UnlockAfterFork()
{
    refreshMutex.unlock();
}

}  // namespace Tolvex::Ilog
