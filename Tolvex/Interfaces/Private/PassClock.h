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
/// A pass costs two stores and one reading of the coarse clock, which costs a quarter of a reading
/// of the exact one. The exact clock is read only when the coarse one has moved. A worker whose
/// passes are so short that the coarse clock is a good part of them reads it after several passes;
/// the others cost one store.
/// @par Thread safety
/// Only the thread of the run calls BeginPass(), EndPass() and Rest(). Any thread may call the
/// other functions at the same time.
class PassClock
{
public:
    /// The first pass begins, or the first one after a rest.
    void BeginPass();

    /// A pass ends, and the next one begins.
    void EndPass()
    {
        const std::uint64_t ended = passes.load(std::memory_order_relaxed) + 1;
        passes.store(ended, std::memory_order_relaxed);
        if ((ended & skipMask) == 0) {
            ReadClock();
        }
    }

    /// No pass runs from now on, until BeginPass().
    void Rest() { stamp.store(never, std::memory_order_relaxed); }

    /// @return the number of passes that have ended.
    std::uint64_t Passes() const { return passes.load(std::memory_order_relaxed); }

    /// @return the length of the last pass that has ended.
    std::chrono::nanoseconds LastPass() const { return lastPass.load(std::memory_order_relaxed); }

    /// @return the length of the longest pass that has ended.
    std::chrono::nanoseconds LongestPass() const
    {
        return longestPass.load(std::memory_order_relaxed);
    }

    /// @return the time since the running pass began; 0 if no pass runs.
    std::chrono::nanoseconds RunningPass() const;

private:
    static constexpr std::chrono::nanoseconds never = std::chrono::nanoseconds::max();

    void ReadClock();

    std::chrono::nanoseconds tick{0};  ///< time of the coarse clock at the stamp
    std::uint64_t passesAtStamp = 0;   ///< that had ended at the stamp
    std::uint64_t skipMask =
        0;  ///< EndPass() reads the coarse clock if the count has none of these bits

    // Written by the thread of the run, read by any.
    std::atomic<std::uint64_t> passes{0};
    std::atomic<std::chrono::nanoseconds> stamp{never};  ///< when a pass began, by the exact clock
    /// 0: passes may have ended since the stamp, together in less than a tick. Not 0: at most
    /// passes that skipMask skipped have ended since the stamp.
    std::atomic<std::chrono::nanoseconds> lastPass{std::chrono::nanoseconds(0)};
    std::atomic<std::chrono::nanoseconds> longestPass{std::chrono::nanoseconds(0)};
};

}  // namespace Tolvex::Interfaces
