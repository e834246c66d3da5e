/// @file
/// The place of a worker in the list of all, the numbers of its passes, and its scheduling.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <pthread.h>
#include <sched.h>
#include <string>

namespace Tolvex::Interfaces {

class IThread;
class PassClock;

/// The error numbers with which the system has refused a worker's settings; 0: not refused.
struct WorkerRefusals
{
    /// Logs them as warnings. @param name  Of the worker.
    void Log(const std::string& name) const;

    int priority = 0;
    int affinity = 0;
};

/// The record of one IThread: its place in the list of all workers, the numbers of its passes, and
/// how its next thread is to be scheduled.
class WorkerRecord
{
public:
    WorkerRecord() = default;
    WorkerRecord(const WorkerRecord&) = delete;
    WorkerRecord& operator=(const WorkerRecord&) = delete;

    /// Puts the worker on the list, unless it is there already.
    void List(const IThread& worker);
    /// Takes it off again. From then on no other thread reads the worker through the list.
    void Unlist();

    /// Calls visit for all that are on the list, the newest first. Meanwhile none of their workers
    /// is destroyed.
    static void VisitAll(const std::function<void(const IThread&, const WorkerRecord&)>& visit);

    /// Lengths in nanoseconds.
    struct Passes
    {
        std::uint64_t count;
        std::int64_t last;
        std::int64_t longest;
        std::int64_t running;  ///< 0: no pass runs
    };

    Passes ReadPasses() const;

    // The following are guarded by the mutex of the worker's threads.

    /// Applies the requested scheduling to a new thread, which exists as long as the mutex is held.
    WorkerRefusals Apply(pthread_t thread) const;
    /// @return the name at the last start; none before the first.
    const std::optional<std::string>& NameAtStart() const { return nameAtStart; }
    /// Begins the numbers of a new thread.
    void BeginRun(const std::string& name);
    /// No pass runs any more; the thread may have been unwound.
    void EndRun() { stamp.store(0, std::memory_order_relaxed); }

    void SetPriority(int policy, int priority) { scheduling = {policy, priority}; }
    void SetCpuAffinity(const cpu_set_t& wanted) { cpus = wanted; }

private:
    friend class PassClock;

    struct Scheduling
    {
        int policy;
        int priority;
    };

    static void LockBeforeFork();
    static void UnlockInParent();
    static void EmptyInChild();
    static void PrepareForForks();

    std::int64_t RunningPass() const;

    // Guarded by the mutex of the worker's threads.
    std::optional<std::string> nameAtStart;  ///< none before the first start
    std::optional<Scheduling> scheduling;    ///< as requested; none: as the creating thread
    std::optional<cpu_set_t> cpus;           ///< as requested; none: as the creating thread

    // Guarded by the mutex of the list.
    const IThread* object = nullptr;  ///< null: not on the list
    WorkerRecord* next = nullptr;
    WorkerRecord* previous = nullptr;

    // Written by the worker's newest thread, read by any. Times in ns of the monotonic clock.
    std::atomic<const PassClock*> writer{nullptr};  ///< of the newest thread
    std::atomic<std::uint64_t> passes{0};
    std::atomic<std::uint64_t> passesAtStamp{0};
    std::atomic<std::int64_t> stamp{0};  ///< end of a pass and begin of the next; 0: no pass runs
    std::atomic<std::int64_t> lastPass{0};
    std::atomic<std::int64_t> longestPass{0};
};

/// Counts and times the passes of one thread for as long as it lives.
///
/// A pass costs one store, and one reading of the coarse clock, which costs a quarter of a reading
/// of the exact one. That one is read only when the coarse clock has moved. A worker whose passes
/// are so short that the coarse clock is a good part of them reads it after several passes.
/// @par Thread safety
/// Belongs to the thread that made it. When a newer thread of the worker has made one, this one
/// leaves the record alone.
class PassClock
{
public:
    explicit PassClock(WorkerRecord& kept);

    PassClock(const PassClock&) = delete;
    PassClock& operator=(const PassClock&) = delete;

    void EndPass()
    {
        ++passes;
        record.passes.store(passes, std::memory_order_relaxed);
        if (--passesToReading == 0) {
            ReadClock();
        }
    }

    /// No pass runs from now on, until EndRest().
    void BeginRest();
    void EndRest();

private:
    void ReadClock();
    void Stamp(std::int64_t time);
    bool IsNewest() const { return record.writer.load(std::memory_order_relaxed) == this; }

    WorkerRecord& record;
    std::uint64_t passes = 0;
    std::uint64_t passesAtStamp = 0;
    std::uint64_t group = 1;            ///< passes from one reading of the clock to the next
    std::uint64_t passesToReading = 1;  ///< in this group
    std::int64_t stamp = 0;
    std::int64_t lastTick = 0;  ///< what the coarse clock showed
    std::int64_t lastPass = 0;
    std::int64_t longestPass = 0;
    const std::int64_t tickLength;
};

}  // namespace Tolvex::Interfaces
