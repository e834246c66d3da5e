/// @file
/// The numbers of the passes of one run of a worker.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Tolvex::Interfaces {

/// Counts and times the passes of one run. Every Start() of a worker makes a new object, so a
/// thread of an earlier run cannot change the numbers of the new one.
///
/// A pass costs one store, and one reading of the coarse clock, which costs a quarter of a reading
/// of the exact one. That one is read only when the coarse clock has moved. A worker whose passes
/// are so short that the coarse clock is a good part of them reads it after several passes.
/// @par Thread safety
/// Only the thread of the run counts. Any thread may call Read() at the same time.
class PassClock
{
public:
    /// Of a run that makes no pass before EndRest().
    PassClock();

    void EndPass()
    {
        passes.store(passes.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        if (--passesToReading == 0) {
            ReadClock();
        }
    }

    /// No pass runs from now on, until EndRest().
    void BeginRest() { stamp.store(0, std::memory_order_relaxed); }
    /// A pass begins now.
    void EndRest();

    struct Numbers
    {
        std::uint64_t passes;                   ///< that have ended
        std::chrono::milliseconds lastPass;     ///< of those that have ended
        std::chrono::milliseconds longestPass;  ///< of those that have ended
        std::chrono::milliseconds runningPass;  ///< 0: no pass runs
    };

    Numbers Read() const;

private:
    void ReadClock();
    void Stamp(std::int64_t time);

    // Times in ns.
    const std::int64_t tickLength;      ///< of the coarse clock
    std::int64_t lastTick = 0;          ///< what the coarse clock showed
    std::uint64_t group = 1;            ///< passes from one reading of the clock to the next
    std::uint64_t passesToReading = 1;  ///< in this group

    // Written by the thread of the run, read by any.
    std::atomic<std::uint64_t> passes{0};
    std::atomic<std::uint64_t> passesAtStamp{0};
    std::atomic<std::int64_t> stamp{0};  ///< end of a pass and begin of the next; 0: no pass runs
    std::atomic<std::int64_t> lastPass{0};
    std::atomic<std::int64_t> longestPass{0};
};

}  // namespace Tolvex::Interfaces
