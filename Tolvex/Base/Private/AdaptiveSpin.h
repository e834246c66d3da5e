/// @file
/// Waiting for another thread without sleeping, where that pays.
#pragma once

#include <algorithm>
#include <chrono>
#include <sched.h>

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

/// @return whether the calling thread may run on one processor only.
inline bool HasOneProcessor()
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    return sched_getaffinity(0, sizeof(processors), &processors) == 0 &&
           CPU_COUNT(&processors) == 1;
}

/// Spins before sleeping; backs off when spinning fails.
///
/// Putting a thread to sleep and waking it takes tens of microseconds where the processor idles in
/// between. An event that comes within that time is better waited for by spinning. The spin never
/// yields the processor: on a busy system a thread that yields runs again only milliseconds later,
/// while a thread that sleeps runs soon after it has been woken. After a spin that fails,
/// the next wait does not spin. The number of such waits doubles with each further failure, up to
/// 64, until a spin succeeds. With one processor no wait spins: the awaited thread could not run
/// meanwhile.
/// @par Thread safety
/// Caller serialises.
class AdaptiveSpin
{
public:
    /// Spins until the condition holds, for about 50 microseconds at most.
    ///
    /// No cancellation point.
    /// @param condition  Cheap; reads what another thread changes.
    /// @return whether the condition held; if not, sleep.
    template <typename Condition>
    bool Until(const Condition& condition)
    {
        if (condition()) {
            return true;
        }
        if (waitsWithoutSpin > 0) {
            --waitsWithoutSpin;
            return false;
        }
        if (!severalProcessors) {
            severalProcessors = !HasOneProcessor();
        }
        if (severalProcessors && Spin(condition)) {
            backoff = 1;
            return true;
        }
        waitsWithoutSpin = backoff;
        backoff = std::min(2 * backoff, longestBackoff);
        severalProcessors = false;  // Asked again before the next spin: cpusets change.
        return false;
    }

private:
    static constexpr std::chrono::microseconds longest{50};
    static constexpr int roundsPerLookAtTheClock = 16;
    static constexpr int longestBackoff = 64;

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

    int waitsWithoutSpin = 0;        ///< number of waits to come that do not spin
    int backoff = 1;                 ///< value of waitsWithoutSpin after the next spin that fails
    bool severalProcessors = false;  ///< known since the last spin that failed
};

}  // namespace Tolvex::Base
