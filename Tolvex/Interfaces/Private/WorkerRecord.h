/// @file
/// What is known of a worker beside its threads.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <pthread.h>
#include <sched.h>
#include <string>

#include "Tolvex/Interfaces/Private/PassClock.h"

namespace Tolvex::Interfaces {

class IThread;

/// The error numbers with which the system has refused a worker's settings; 0: not refused.
struct WorkerRefusals
{
    /// Logs them as warnings. @param name  Of the worker.
    void Log(const std::string& name) const;

    int priority = 0;
    int affinity = 0;
};

/// The record of one IThread: its place in the list of all workers, the numbers of its last run,
/// and how its next thread is to be scheduled.
class WorkerRecord
{
public:
    /// Puts the worker at the end of the list, unless it is there already.
    void List(const IThread& worker);
    /// Takes it off again. From then on no other thread reads the worker through the list.
    void Unlist();

    /// Calls visit for all that are on the list. Meanwhile none of them is destroyed.
    static void VisitAll(const std::function<void(const IThread&)>& visit);

    // The following are guarded by the mutex of the worker's threads.

    /// Applies the requested scheduling to a new thread, which exists as long as the mutex is held.
    WorkerRefusals Apply(pthread_t thread) const;

    struct Scheduling
    {
        int policy;
        sched_param parameter;
    };

    std::optional<Scheduling> scheduling;  ///< as requested; none: as the creating thread
    std::optional<cpu_set_t> cpus;         ///< as requested; none: as the creating thread
    std::string nameAtStart;               ///< of the last run
    std::shared_ptr<PassClock> passClock;  ///< of the last run; null before the first

private:
    static WorkerRecord** LinkTo(const WorkerRecord* record);

    // Guarded by the mutex of the list.
    const IThread* object = nullptr;
    WorkerRecord* next = nullptr;
};

}  // namespace Tolvex::Interfaces
