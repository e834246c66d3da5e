/// @file
/// A short wait for another thread without sleeping.
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

/// Spins before sleeping; backs off when spinning fails.
///
/// Putting a thread to sleep and waking it takes tens of microseconds if the processor idles in
/// between. A wait that is shorter than that is better spent awake. The spin does not yield the
/// processor: on a busy system the thread would run again only milliseconds later, while a thread
/// that sleeps runs soon after it is woken.
///
/// After a spin that failed the next waits do not spin, and their number doubles with every failure
/// (exponential backoff). So a thread whose waits are often long rarely spins.
///
/// Make one per thread and place of waiting, not one per object that is waited for.
/// @par Thread safety
/// Belongs to one thread.
class AdaptiveSpin
{
public:
    /// Spins until the condition holds, for about 50 microseconds at most.
    ///
    /// No cancellation point.
    /// @param condition  Cheap; reads shared members.
    /// @return true if the condition held; if not, the caller should sleep.
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

    int waitsWithout = 0;  ///< number of waits left that do not spin
    int nextWithout = 1;   ///< value of waitsWithout after the next spin that fails
};

}  // namespace Tolvex::Base
