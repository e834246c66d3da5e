#include "Tolvex/Util/Private/LiveTimers.h"

#include <memory>
#include <new>
#include <pthread.h>

#include "Tolvex/Base/SharedValue.h"

namespace Tolvex::Util {

namespace {

/// How late an expiry may be delivered and still be told from one of a later timer.
constexpr std::chrono::seconds longestDelivery(10);

constinit LiveTimers* listOfProcess = nullptr;  // shared; null until it is needed

}  // namespace

LiveTimers& LiveTimers::Get()
{
    LiveTimers* const made = Base::LoadShared(listOfProcess);
    return made != nullptr ? *made : *Make();
}

LiveTimers* LiveTimers::Make()
{
    std::unique_ptr<LiveTimers> made(new LiveTimers(nullptr));
    // First: no thread comes to lock it before. Best effort: without memory a child that is forked
    // in the wrong moment finds the lock taken. To be prepared twice does no harm.
    pthread_atfork(nullptr, nullptr, MakeInChild);
    if (Base::SetSharedOnce(listOfProcess, made.get())) {
        static_cast<void>(made.release());  // never deleted, see the header
    }
    return Base::LoadShared(listOfProcess);
}

/// The child has none of the timers. Its copies of the lock and of the entries may be in any state.
void LiveTimers::MakeInChild()
{
    if (auto* const own = new (std::nothrow) LiveTimers(listOfProcess)) {
        listOfProcess = own;
    }
}

void LiveTimers::Add(const void* timer)
{
    const std::lock_guard lock(mutex);
    ForgetOld(Clock::now());

    Entry& entry = entries[timer];  // may hold the strays of an earlier timer
    entry.exists = true;
    entry.period = Clock::duration::zero();
    entry.admitted = 0;
}

void LiveTimers::Remove(const void* timer)
{
    const std::lock_guard lock(mutex);
    const auto found = entries.find(timer);
    if (found == entries.end()) {
        return;
    }

    const auto now = Clock::now();
    NoteStrays(found->second, now);
    found->second.exists = false;
    if (found->second.straysUntil <= now) {
        entries.erase(found);
    }
}

void LiveTimers::Disarm(const void* timer)
{
    const std::lock_guard lock(mutex);
    NoteSetting(timer, {}, Clock::duration::zero());
}

std::unique_lock<std::mutex> LiveTimers::Admit(const void* timer)
{
    std::unique_lock lock(mutex);
    const auto found = entries.find(timer);
    if (found == entries.end() || !found->second.exists) {
        return {};
    }

    Entry& entry = found->second;
    const auto now = Clock::now();
    if (now < entry.straysUntil && entry.admitted >= CountDue(entry, now)) {
        return {};
    }
    ++entry.admitted;
    return lock;
}

void LiveTimers::NoteSetting(const void* timer, Clock::time_point start, Clock::duration period)
{
    const auto found = entries.find(timer);
    if (found == entries.end() || !found->second.exists) {
        return;
    }

    NoteStrays(found->second, Clock::now());
    found->second.start = start;
    found->second.period = period;
    found->second.admitted = 0;
}

std::int64_t LiveTimers::CountDue(const Entry& entry, Clock::time_point now)
{
    return entry.period > Clock::duration::zero() ? (now - entry.start) / entry.period : 0;
}

void LiveTimers::NoteStrays(Entry& entry, Clock::time_point now)
{
    // Also true for expiries that are lost, not late: then the search for strays finds none.
    if (CountDue(entry, now) > entry.admitted) {
        entry.straysUntil = now + longestDelivery;
    }
}

void LiveTimers::ForgetOld(Clock::time_point now)
{
    if (entries.size() < sweepSize) {
        return;
    }
    std::erase_if(entries, [now](const auto& item) {
        return !item.second.exists && item.second.straysUntil <= now;
    });
    sweepSize = 2 * entries.size() + firstSweepSize;
}

}  // namespace Tolvex::Util
