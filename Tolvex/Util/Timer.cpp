#include "Tolvex/Util/Timer.h"

#include <cstddef>
#include <iostream>
#include <pthread.h>
#include <utility>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Util/Private/LiveTimers.h"

namespace Tolvex::Util {

namespace {

void PrepareAttributes(pthread_attr_t& attributes, int stackSize)
{
    pthread_attr_init(&attributes);
    if (stackSize > 0) {
        // Best effort: a size that is refused leaves the default.
        pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(stackSize));
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
}

timespec ToTimespec(int milliseconds)
{
    timespec time = {};
    time.tv_sec = milliseconds / 1000;
    time.tv_nsec = static_cast<long>(milliseconds % 1000 * 1000000.0);
    return time;
}

}  // namespace

Timer::Timer() : Timer(std::function<void(Timer*)>())
{
    const auto lock = LiveTimers::Get().Add(this);
}

Timer::Timer(std::function<void(Timer*)> work)
    : callback(std::make_shared<std::function<void(Timer*)>>(std::move(work)))
{
    SetNamespace("Tolvex::Util");
    SetClassName("Timer");
}

// Delegates to another constructor, so that the destructor runs if anything below throws.
Timer::Timer(int milliseconds, std::function<void(Timer*)> work, void* context, int stackSize)
    : Timer(std::move(work))
{
    // Required: the attribute object is not destroyed. It owns no memory.
    pthread_attr_t attributes;
    PrepareAttributes(attributes, stackSize);

    notification.sigev_value.sival_ptr = this;
    notification.sigev_notify = SIGEV_THREAD;
    notification.sigev_notify_function = CB;
    notification.sigev_notify_attributes = &attributes;
    userData = context;

    // Held to the end: a late expiry of an earlier timer at this address must not call the
    // callback, which may delete this timer, before the timer is complete.
    const auto lock = LiveTimers::Get().Add(this);
    // A failure stays in the error text.
    Create();
    notification.sigev_notify_attributes = nullptr;  // They are gone after this constructor.
    SetTime(milliseconds);
}

Timer::~Timer()
{
    const Base::NoCancellation scope;  // The message of Remove() is a cancellation point.
    Base::StoreShared(stopping, true);
    Remove();
    LiveTimers::Get().Remove(this);
}

bool Timer::Create()
{
    ResetError();
    timer_t created = nullptr;
    if (timer_create(CLOCK_REALTIME, &notification, &created) != 0) {
        SetError("Create timer error", "Create", true, true);
        return false;
    }

    const timer_t replaced = std::exchange(timerId, created);
    if (replaced != nullptr) {
        timer_delete(replaced);
    }
    return true;
}

bool Timer::SetTime(int milliseconds)
{
    ResetError();
    if (timerId == nullptr) {
        SetError("Timer not initialized", "SetTime", true, true);
        return false;
    }

    times.it_interval = ToTimespec(milliseconds);
    times.it_value = times.it_interval;
    if (timer_settime(timerId, 0, &times, nullptr) != 0) {
        SetError("Set timer error", "SetTime", true, true);
        return false;
    }
    // No member may be touched here: the callback may have destroyed this timer.
    return true;
}

bool Timer::Remove()
{
    if (timerId == nullptr) {
        return true;
    }

    if (timer_delete(timerId) != 0) {
        // Required: the message goes to standard output, not to the log or the error text.
        std::cout << "Unable to delete timer .... !!!!!" << std::endl;
        return false;
    }
    timerId = nullptr;
    // Required: the value is cleared too. So the expiries after another Create() do nothing.
    notification.sigev_value.sival_ptr = nullptr;
    return true;
}

void Timer::CB(sigval value)
{
    auto* timer = static_cast<Timer*>(value.sival_ptr);
    if (timer == nullptr) {
        return;
    }

    // Shared with the timer, which may be destroyed while the callback runs.
    std::shared_ptr<std::function<void(Timer*)>> work;
    if (const auto lock = LiveTimers::Get().Lock(timer);
        lock && !Base::LoadShared(timer->stopping)) {
        work = timer->callback;
    }
    if (work != nullptr) {
        (*work)(timer);
    }
}

}  // namespace Tolvex::Util
