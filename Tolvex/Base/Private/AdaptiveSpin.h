/// @file
/// Waiting for another thread without sleeping, where that pays. Not installed.
#pragma once

#include <algorithm>
#include <chrono>

namespace Tolvex::Base {

/// Tells the processor that the thread is spinning; another hardware thread may run meanwhile.
inline void RelaxProcessor()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield");
#endif
}

/// Spins before a sleep that is likely to be short, and less often the less that has paid.
///
/// Putting a thread to sleep and waking it takes tens of microseconds where the processor idles in
/// between, so what comes within that time is better waited for awake. It never yields the
/// processor: on a busy system the thread would be run again only milliseconds later, while one
/// that sleeps is run soon after it has been woken. After a spin in vain the next waits go without,
/// twice as many each time (exponential backoff): a thread that waits long and often does not spin.
/// Made one per thread and place, not per object waited for: so it needs no synchronisation.
/// @par Thread safety
/// Belongs to one thread.
class AdaptiveSpin
{
public:
    /// Spins until the condition holds, for about 50 microseconds at most.
    ///
    /// No cancellation point.
    /// @param condition  Cheap; what it reads is shared.
    /// @return whether the condition held; if not, sleep.
    template <typename Condition>
    bool Until(const Condition& condition)
    {
        if (condition()) {
            return true;
        }
        if (waitsWithout > 0) {
            --waitsWithout;
            return false;
        }
        if (Spin(condition)) {
            nextWithout = 1;
            return true;
        }
        waitsWithout = nextWithout;
        nextWithout = std::min(2 * nextWithout, mostWithout);
        return false;
    }

private:
    static constexpr std::chrono::microseconds longest{50};
    static constexpr int roundsPerLookAtTheClock = 16;
    static constexpr int mostWithout = 64;

    template <typename Condition>
    static bool Spin(const Condition& condition)
    {
        const auto end = std::chrono::steady_clock::now() + longest;
        do {
            for (int round = 0; round < roundsPerLookAtTheClock; ++round) {
                if (condition()) {
                    return true;
                }
                RelaxProcessor();
            }
        } while (std::chrono::steady_clock::now() < end);
        return false;
    }

    int waitsWithout = 0;  ///< so many waits do not spin
    int nextWithout = 1;   ///< what waitsWithout becomes after the next spin in vain
};

}  // namespace Tolvex::Base
