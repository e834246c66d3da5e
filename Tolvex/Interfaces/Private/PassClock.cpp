#include "Tolvex/Interfaces/Private/PassClock.h"

#include <algorithm>
#include <ctime>

namespace Tolvex::Interfaces {
namespace {

using std::memory_order_relaxed;

constexpr std::uint64_t manyPassesInATick = 1000;
constexpr std::uint64_t passesPerGroup = 8;
constexpr std::int64_t nanosecondsPerSecond = 1000000000;

/// @param ask  clock_gettime() or clock_getres().
/// @return its answer, in ns.
std::int64_t Ask(int (*ask)(clockid_t, timespec*), clockid_t clock)
{
    timespec answer{};
    ask(clock, &answer);
    return std::int64_t{answer.tv_sec} * nanosecondsPerSecond + answer.tv_nsec;
}

std::chrono::milliseconds InMilliseconds(std::int64_t nanoseconds)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::nanoseconds(nanoseconds));
}

}  // namespace

PassClock::PassClock() : tickLength(Ask(clock_getres, CLOCK_MONOTONIC_COARSE)) {}

void PassClock::EndRest()
{
    lastTick = Ask(clock_gettime, CLOCK_MONOTONIC_COARSE);
    Stamp(Ask(clock_gettime, CLOCK_MONOTONIC));
}

void PassClock::Stamp(std::int64_t time)
{
    passesAtStamp.store(passes.load(memory_order_relaxed), memory_order_relaxed);
    stamp.store(time, memory_order_relaxed);
}

void PassClock::ReadClock()
{
    passesToReading = group;
    const std::int64_t tick = Ask(clock_gettime, CLOCK_MONOTONIC_COARSE);
    if (tick == lastTick) {
        lastPass.store(0, memory_order_relaxed);
        return;
    }

    lastTick = tick;
    const std::int64_t now = Ask(clock_gettime, CLOCK_MONOTONIC);
    const std::int64_t sinceStamp = now - stamp.load(memory_order_relaxed);
    const std::uint64_t passesSince =
        passes.load(memory_order_relaxed) - passesAtStamp.load(memory_order_relaxed);
    // The passes before the last took less than a tick altogether: the tick is left out, so that
    // they do not count as part of the last one.
    const bool lastAlone = passesSince <= group;
    const auto length = std::max<std::int64_t>(sinceStamp - (lastAlone ? 0 : tickLength), 0);
    lastPass.store(length, memory_order_relaxed);
    longestPass.store(std::max(length, longestPass.load(memory_order_relaxed)),
                      memory_order_relaxed);

    const bool spinning = passesSince > manyPassesInATick && sinceStamp < 2 * tickLength;
    group = spinning ? passesPerGroup : 1;
    passesToReading = group;
    Stamp(now);
}

PassClock::Numbers PassClock::Read() const
{
    // The clock is read first: if this thread is held up here, the pass does not seem longer.
    const std::int64_t now = Ask(clock_gettime, CLOCK_MONOTONIC);
    const std::int64_t begin = stamp.load(memory_order_relaxed);
    const std::uint64_t ended = passes.load(memory_order_relaxed);
    // Passes that have ended since took less than a tick altogether.
    const bool exact = ended == passesAtStamp.load(memory_order_relaxed);
    const auto running = std::max<std::int64_t>(now - begin - (exact ? 0 : tickLength), 0);
    return {ended, InMilliseconds(lastPass.load(memory_order_relaxed)),
            InMilliseconds(longestPass.load(memory_order_relaxed)),
            InMilliseconds(begin == 0 ? 0 : running)};
}

}  // namespace Tolvex::Interfaces
