// Loaded into each test program under the thread sanitizer: timers are set, and never expire.
//
// The sanitizer does not know the threads that the C library starts for expiries: the first one
// ends the process. The timer of the log's temperature expires after 60 s, which a test reaches on
// a starved machine.

#include <ctime>

#include "tests/Support/RealFunction.h"

extern "C" int timer_settime(timer_t timer, int flags, const struct itimerspec* times,
                             struct itimerspec* before) noexcept
{
    static auto* const real =
        Tolvex::Support::RealFunction<decltype(timer_settime)>("timer_settime");
    itimerspec later = *times;
    if (later.it_value.tv_sec > 0 || later.it_value.tv_nsec > 0) {
        later.it_value.tv_sec += 86400;
    }
    return real(timer, flags, &later, before);
}
