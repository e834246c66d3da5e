#include "Tolvex/Interfaces/Private/PassClock.h"

#include <algorithm>
#include <ctime>

namespace Tolvex::Interfaces {
namespace {

using std::memory_order_relaxed;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr std::uint64_t manyPassesInATick = 1000;
constexpr std::uint64_t passesPerReading = 8;  // after many passes in a tick; a power of two
constexpr milliseconds shortPass(1);           // after a longer one each pass reads the clock

/// @param ask  clock_gettime() or clock_getres().
/// @return its answer.
nanoseconds Ask(int (*ask)(clockid_t, timespec*), clockid_t clock)
{
    timespec answer{};
    ask(clock, &answer);
    return std::chrono::seconds(answer.tv_sec) + nanoseconds(answer.tv_nsec);
}

}  // namespace

void PassClock::BeginPass()
{
    tick = Ask(clock_gettime, CLOCK_MONOTONIC_COARSE);
    passesAtStamp = Passes();
    stamp.store(Ask(clock_gettime, CLOCK_MONOTONIC), memory_order_relaxed);
}

void PassClock::ReadClock()
{
    if (Ask(clock_gettime, CLOCK_MONOTONIC_COARSE) == tick) {
        lastPass.store(nanoseconds(0), memory_order_relaxed);
        return;
    }

    const nanoseconds length = RunningPass();
    lastPass.store(length, memory_order_relaxed);
    longestPass.store(std::max(length, LongestPass()), memory_order_relaxed);
    const bool spinning = Passes() - passesAtStamp > manyPassesInATick && length < shortPass;
    skipMask = spinning ? passesPerReading - 1 : 0;
    BeginPass();
}

nanoseconds PassClock::RunningPass() const
{
    // The clock is read first: if this thread is held up here, the pass does not seem longer.
    const nanoseconds now = Ask(clock_gettime, CLOCK_MONOTONIC);
    const nanoseconds sinceStamp = now - stamp.load(memory_order_relaxed);
    // While no pass runs, the stamp is never: the difference is negative, and the result 0.
    // Passes may have ended since the stamp, in less than a tick altogether. The tick is left out,
    // so that they do not count as part of this one.
    const bool inexact = LastPass() == nanoseconds(0);
    const nanoseconds leftOut =
        inexact ? Ask(clock_getres, CLOCK_MONOTONIC_COARSE) : nanoseconds(0);
    return std::max(sinceStamp - leftOut, nanoseconds(0));
}

}  // namespace Tolvex::Interfaces
