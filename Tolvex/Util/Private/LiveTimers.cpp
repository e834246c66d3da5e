#include "Tolvex/Util/Private/LiveTimers.h"

#include <memory>
#include <new>
#include <pthread.h>

#include "Tolvex/Base/SharedValue.h"

namespace Tolvex::Util {

namespace {

constinit LiveTimers* listOfProcess = nullptr;  // shared; null until the first timer

}  // namespace

LiveTimers& LiveTimers::Get()
{
    LiveTimers* const made = Base::LoadShared(listOfProcess);
    return made != nullptr ? *made : *Make();
}

/// Takes no lock: a fork that interrupts it leaves nothing behind in the child. If two threads race
/// to create the list, the loser deletes its own.
LiveTimers* LiveTimers::Make()
{
    std::unique_ptr<LiveTimers> made(new LiveTimers(nullptr));
    // Registered before any thread can lock the list; a second registration does no harm. Best
    // effort: without memory for it, a child that is forked at the wrong moment finds the lock
    // taken.
    pthread_atfork(nullptr, nullptr, MakeInChild);
    if (Base::SetSharedOnce(listOfProcess, made.get())) {
        static_cast<void>(made.release());  // never deleted, see the header
    }
    return Base::LoadShared(listOfProcess);
}

/// The child has no timers, and its copy of the list and of the lock may be in any state.
void LiveTimers::MakeInChild()
{
    if (auto* const own = new (std::nothrow) LiveTimers(listOfProcess)) {
        listOfProcess = own;
    }
}

std::unique_lock<std::mutex> LiveTimers::Add(const void* timer)
{
    std::unique_lock lock(mutex);
    timers.insert(timer);
    return lock;
}

void LiveTimers::Remove(const void* timer)
{
    const std::lock_guard lock(mutex);
    timers.erase(timer);
}

std::unique_lock<std::mutex> LiveTimers::Lock(const void* timer)
{
    std::unique_lock lock(mutex);
    if (!timers.contains(timer)) {
        return {};
    }
    return lock;
}

}  // namespace Tolvex::Util
