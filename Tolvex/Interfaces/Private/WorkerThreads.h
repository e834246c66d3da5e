/// @file
/// The threads of one worker object.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/Private/PassClock.h"

namespace Tolvex::Interfaces {

/// The error numbers with which the system has refused a worker's settings; 0: not refused.
struct WorkerRefusals
{
    int priority = 0;
    int affinity = 0;
};

/// The threads of one IThread that were created and may still touch it, the settings for its next
/// thread, and the numbers of its last run.
///
/// The object and each of its threads share ownership, so a thread that ends can ask whether the
/// object still exists. An object has more than one thread only for a moment: after a Cancel() or
/// Abort(), if Start() is called before the old thread has ended.
///
/// No thread in the list can end while the mutex is held, so the handles in it are valid.
class WorkerThreads
{
public:
    /// Counts the starts of the object.
    using RunNumber = std::uint32_t;
    static constexpr RunNumber noRun = 0;  ///< of a thread that is not in the list

    WorkerThreads();

    /// Guards the list, the settings, the last run, and every hand-over from one thread of the
    /// object to the next. Held for a few statements, or while a thread is created; nothing that is
    /// called under it blocks.
    std::mutex mutex;

    // Use the following with the mutex held.

    std::optional<int> policy;         ///< as requested; none: as the creating thread
    sched_param priority{};            ///< for that policy
    std::optional<cpu_set_t> cpus;     ///< as requested; none: as the creating thread
    std::string nameAtStart;           ///< of the last run
    std::shared_ptr<PassClock> clock;  ///< of the last run; null before the first

    /// Applies the requested settings to a new thread, which exists as long as the mutex is held.
    WorkerRefusals ApplySettings(pthread_t thread) const;
    /// Begins a new run: all threads in the list now belong to earlier runs. @return its number.
    RunNumber NextRun();
    /// Adds a thread, which counts its passes in `clock`.
    void Add(pthread_t handle, RunNumber run);
    void Remove(RunNumber run);
    void MarkAborted(pthread_t handle);
    bool IsAborted(RunNumber run) const;
    std::optional<pthread_t> Newest() const;
    RunNumber NewestRun() const { return newest; }
    void MarkObjectGone() { objectGone = true; }
    bool IsObjectGone() const { return objectGone; }

    // The following lock the mutex themselves, or need no lock.

    /// The number of a run, and its clock; a thread that is not in the list has noRun and null.
    struct Run
    {
        RunNumber number = noRun;
        std::shared_ptr<PassClock> clock;
    };

    /// @return the run of the calling thread.
    Run OwnRun();

    /// @return whether the thread of that run is in the list.
    bool HasRun(RunNumber run);

    /// @return false once a newer thread was created. Takes no lock.
    bool IsNewest(RunNumber run) const { return run == noRun || run == Base::LoadShared(newest); }

    /// @return false in a child that was forked after the last start: it has none of the threads.
    /// Takes no lock.
    bool AreOfThisProcess() const;

    enum class Others
    {
        All,
        NotAborted
    };

    /// @return whether threads other than the calling one are in the list.
    bool HasOthers(Others which);

    /// Blocks until no thread but the calling one is in the list, or until the limit is over.
    void AwaitOthers(std::chrono::milliseconds limit);

    /// Blocks until the threads of earlier runs have left the list, or until the limit is over.
    void AwaitOlder(RunNumber run, std::chrono::milliseconds limit);

    /// Blocks until every thread but the calling one is aborted or has left the list.
    void AwaitOthersNotAborted();

private:
    struct Entry
    {
        pthread_t handle;
        RunNumber run;
        bool aborted;
        std::shared_ptr<PassClock> clock;
    };

    bool HasOlder(RunNumber run);

    std::vector<Entry> threads;  ///< oldest first
    RunNumber newest = noRun;    ///< shared
    pid_t process;               ///< shared: the process of the last start, or of the construction
    bool objectGone = false;
};

}  // namespace Tolvex::Interfaces
