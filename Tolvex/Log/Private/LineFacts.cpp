#include "Tolvex/Log/Private/LineFacts.h"

#include <algorithm>
#include <ctime>
#include <mutex>
#include <string>

#include "Tolvex/Util/TemperatureMonitor.h"
#include "Tolvex/Util/UtilTime.h"

namespace Tolvex::Ilog {

namespace {

constinit std::mutex factsMutex;  // guards what follows; held while the facts are found out
constinit LineFacts last;         // no temperature; of length 0, no text yet
constinit tm lastShown{};         // the broken-down time that the text shows

bool SameSecond(const tm& left, const tm& right)
{
    return left.tm_sec == right.tm_sec && left.tm_min == right.tm_min &&
           left.tm_hour == right.tm_hour && left.tm_mday == right.tm_mday &&
           left.tm_mon == right.tm_mon && left.tm_year == right.tm_year;
}

/// Compared by its fields and not by its second, so that a new time zone is seen as well.
void RefreshTextLocked()
{
    const time_t now = std::time(nullptr);
    last.second = now;
    tm local{};
    if (localtime_r(&now, &local) == nullptr ||
        (last.length != 0 && SameSecond(local, lastShown))) {
        return;
    }
    // Of the same second: the clock may have been set since.
    const std::string text = Util::Date(now, "%Y-%m-%d %H:%M:%S");
    last.length = std::min(text.size(), last.text.size());
    std::copy_n(text.begin(), last.length, last.text.begin());
    lastShown = local;
}

}  // namespace

LineFacts ReadLineFacts()
{
    const std::lock_guard lock(factsMutex);
    RefreshTextLocked();

    LineFacts facts = last;
    auto* const monitor = Util::TemperatureMonitor::GetInstance();
    facts.temperatureKnown = monitor->GetTemperatureAvailable();
    facts.temperature = monitor->GetTemperature();
    return facts;
}

void LockLineFacts()
{
    factsMutex.lock();
}

void UnlockLineFacts()
{
    factsMutex.unlock();
}

}  // namespace Tolvex::Ilog
