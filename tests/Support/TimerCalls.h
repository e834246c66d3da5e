/// @file
/// What the library asks of the system's timers. Include it in one file of a test program: it
/// defines timer_create(), timer_settime() and timer_delete(), which note the call and pass it on.
#pragma once

#include <csignal>
#include <cstddef>
#include <ctime>
#include <mutex>
#include <pthread.h>
#include <vector>

#include "tests/Support/RealFunction.h"

namespace Tolvex::Support {

/// One timer_create().
struct CreateCall
{
    clockid_t clock = -1;
    int notify = -1;                           ///< SIGEV_...
    void* value = nullptr;                     ///< the value pointer
    void (*function)(union sigval) = nullptr;  ///< the notify function
    bool hasAttributes = false;                ///< the rest is set if so
    std::size_t stackSize = 0;                 ///< bytes
    int detachState = -1;
    int result = -1;
    timer_t timerId = nullptr;  ///< set if result is 0
};

/// One timer_settime().
struct SetTimeCall
{
    timer_t timerId = nullptr;
    int flags = -1;
    itimerspec times = {};
    int result = -1;
};

/// The calls so far in this process, and what is done to them on their way.
struct TimerCalls
{
    std::vector<CreateCall> created;
    std::vector<SetTimeCall> set;
    std::vector<timer_t> deleted;
    void (*expiry)(union sigval) = nullptr;  ///< gets the expiries instead; null: the library does
    long periodNanoseconds = 0;  ///< armed instead of any other period; 0: the one asked
    std::mutex mutex;            ///< guards all of the above

    static TimerCalls& Get()
    {
        static auto* const calls = new TimerCalls;  // never deleted: expiries may come to the end
        return *calls;
    }

    /// Forgets the calls and passes the next ones on as they are.
    static void Reset()
    {
        TimerCalls& calls = Get();
        const std::lock_guard lock(calls.mutex);
        calls.created.clear();
        calls.set.clear();
        calls.deleted.clear();
        calls.expiry = nullptr;
        calls.periodNanoseconds = 0;
    }
};

inline CreateCall Describe(clockid_t clock, const sigevent& event)
{
    CreateCall call;
    call.clock = clock;
    call.notify = event.sigev_notify;
    call.value = event.sigev_value.sival_ptr;
    if (event.sigev_notify == SIGEV_THREAD) {
        call.function = event.sigev_notify_function;
        if (event.sigev_notify_attributes != nullptr) {
            call.hasAttributes = true;
            pthread_attr_getstacksize(event.sigev_notify_attributes, &call.stackSize);
            pthread_attr_getdetachstate(event.sigev_notify_attributes, &call.detachState);
        }
    }
    return call;
}

}  // namespace Tolvex::Support

// Defined here on purpose: one file of a program includes this.
// NOLINTBEGIN(misc-definitions-in-headers,google-build-using-namespace)
extern "C" {

int timer_create(clockid_t clock, struct sigevent* event, timer_t* timerId) noexcept
{
    using namespace Tolvex::Support;
    static auto* const next = RealFunction<decltype(timer_create)>("timer_create");
    TimerCalls& calls = TimerCalls::Get();
    const std::lock_guard lock(calls.mutex);

    CreateCall call = Describe(clock, *event);
    sigevent passedOn = *event;
    if (calls.expiry != nullptr && event->sigev_notify == SIGEV_THREAD) {
        passedOn.sigev_notify_function = calls.expiry;
    }
    call.result = next(clock, &passedOn, timerId);
    if (call.result == 0) {
        call.timerId = *timerId;
    }
    calls.created.push_back(call);
    return call.result;
}

int timer_settime(timer_t timerId, int flags, const struct itimerspec* times,
                  struct itimerspec* before) noexcept
{
    using namespace Tolvex::Support;
    static auto* const next = RealFunction<decltype(timer_settime)>("timer_settime");
    TimerCalls& calls = TimerCalls::Get();
    const std::lock_guard lock(calls.mutex);

    itimerspec passedOn = *times;
    if (calls.periodNanoseconds != 0) {
        passedOn.it_interval = {0, calls.periodNanoseconds};
        passedOn.it_value = passedOn.it_interval;
    }
    const int result = next(timerId, flags, &passedOn, before);
    calls.set.push_back({timerId, flags, *times, result});
    return result;
}

int timer_delete(timer_t timerId) noexcept
{
    using namespace Tolvex::Support;
    static auto* const next = RealFunction<decltype(timer_delete)>("timer_delete");
    TimerCalls& calls = TimerCalls::Get();
    const std::lock_guard lock(calls.mutex);

    calls.deleted.push_back(timerId);
    return next(timerId);
}
}
// NOLINTEND(misc-definitions-in-headers,google-build-using-namespace)
