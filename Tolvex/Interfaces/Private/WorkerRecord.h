/// @file
/// What is known about a worker besides its laid-down members. Not installed.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <vector>

#include "Tolvex/Interfaces/WorkerHealth.h"

namespace Tolvex::Interfaces {

class PassClock;
class WorkerThreads;

/// The error numbers with which the system has refused a worker's settings; 0: not refused.
struct WorkerRefusals
{
    /// Logs them as warnings. @param name  Of the worker.
    void Log(const std::string& name) const;

    int priority = 0;
    int affinity = 0;
};

/// The record of one IThread: its place in the list of all workers, how its last run is doing, and
/// how its next thread is to be scheduled.
class WorkerRecord
{
public:
    explicit WorkerRecord(WorkerThreads& owner) : threads(owner) {}

    WorkerRecord(const WorkerRecord&) = delete;
    WorkerRecord& operator=(const WorkerRecord&) = delete;

    /// Puts the worker at the end of the list, unless it is there already.
    void List();
    /// Takes it off again. From then on no other thread reads the worker through the list.
    void Unlist();

    // The following are guarded by the mutex of the worker's threads.

    /// Applies the requested scheduling to a new thread, which exists as long as the mutex is held.
    /// From now on the record shows the passes of that thread.
    WorkerRefusals Apply(pthread_t thread);
    /// Forgets the run before.
    void BeginRun(const IThread& worker, const std::string& name);

    void SetPriority(int policy, int priority) { scheduling = {policy, {priority}}; }
    void SetCpuAffinity(const cpu_set_t& wanted) { cpus = wanted; }

private:
    friend class PassClock;
    friend std::vector<WorkerHealth> ListWorkers();

    struct Scheduling
    {
        int policy;
        sched_param parameter;
    };

    /// Adds the worker to a list of those that were started in this process.
    void ReadTo(std::vector<WorkerHealth>& workers) const;
    static WorkerState StateOf(const IThread& worker);
    /// All workers, in the order of their first start; guarded by LockAgainstForks().
    static std::vector<WorkerRecord*>& Listed();

    // Guarded by the mutex of the worker's threads.
    WorkerThreads& threads;
    WorkerHealth lastRun;                  ///< as of its start, or its last pass; no worker: no run
    pthread_t newest = 0;                  ///< the thread of the last start; may have ended
    const PassClock* clock = nullptr;      ///< of the newest thread while it makes passes
    std::optional<Scheduling> scheduling;  ///< as requested; none: as the creating thread
    std::optional<cpu_set_t> cpus;         ///< as requested; none: as the creating thread
};

/// Counts and times the passes of one thread, and shows them in the record for as long as it lives.
///
/// A pass costs one store, and one reading of the coarse clock, which costs a quarter of a reading
/// of the exact one. That one is read only when the coarse clock has moved. A worker whose passes
/// are so short that the coarse clock is a good part of them reads it after several passes.
/// @par Thread safety
/// Belongs to the thread that made it, except for Read(). If that thread is no longer the newest of
/// its worker, the record does not show the clock.
class PassClock
{
public:
    PassClock(WorkerRecord& shownIn, std::mutex& ofRecord);
    /// Leaves the numbers in the record.
    ~PassClock();

    void EndPass()
    {
        const std::uint64_t ended = passes.load(std::memory_order_relaxed) + 1;
        passes.store(ended, std::memory_order_relaxed);
        if ((ended & skipMask) == 0) {
            ReadClock(ended);
        }
    }

    /// No pass runs from now on, until BeginPass().
    void Rest() { stamp.store(noPass, std::memory_order_relaxed); }
    void BeginPass();

    /// Thread-safe.
    void Read(WorkerHealth& health) const;

private:
    static constexpr std::chrono::nanoseconds noPass{0};

    void ReadClock(std::uint64_t ended);
    /// @return the length of the last of the passes since the stamp. If it is not alone, those
    /// before it took less than a tick altogether: a tick is left out, so that they do not count.
    std::chrono::milliseconds LengthOf(std::chrono::nanoseconds sinceStamp, bool alone) const;

    WorkerRecord& record;
    std::mutex& mutex;
    const std::chrono::nanoseconds tickLength;  ///< of the coarse clock
    std::chrono::nanoseconds lastTick{0};       ///< what the coarse clock showed at the stamp
    std::uint64_t skipMask = 0;  ///< passes from one reading of that clock to the next, less 1

    // Written by the thread, read by any.
    std::atomic<std::uint64_t> passes{0};         ///< that have ended
    std::atomic<std::uint64_t> passesAtStamp{0};  ///< that had ended at the stamp
    std::atomic<std::chrono::nanoseconds> stamp;  ///< when a pass began, by the monotonic clock
    std::atomic<std::chrono::milliseconds> lastPass{std::chrono::milliseconds(0)};
    std::atomic<std::chrono::milliseconds> longestPass{std::chrono::milliseconds(0)};
};

}  // namespace Tolvex::Interfaces
