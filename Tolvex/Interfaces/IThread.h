#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <vector>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Interfaces {

class WorkerThreads;
struct WorkerRefusals;

/// Base of a worker thread: calls Run() pass after pass until it is stopped.
///
/// **Stop the thread before the most derived part of the object is destroyed.** The destructor of
/// this class stops the thread too, but by then Run() no longer exists: if the thread calls it, the
/// process ends ("pure virtual function called"). So create the object as `Stopped<Worker>`
/// (Stopped.h), or call StopBeforeDestruction() first in the most derived destructor.
///
/// A derived class supplies Run(), one pass of work. The thread does not pause between passes, so
/// Run() paces itself, normally with ThreadSleep(). Observers (IThreadDelegate) are told about the
/// work and about the stop. The thread is a detached POSIX thread with a stack of 524288 bytes. An
/// object can be started again after its thread has ended or was aborted. See
/// examples/WorkerWithObserver.cpp and examples/PauseAndResume.cpp.
///
/// A child of fork() does not have the threads of its parent. It may destroy a worker that runs in
/// the parent; the destructor does not wait there. It may start a worker whose thread had been
/// stopped, cancelled or aborted.
/// @par Errors
/// Start() reports a lack of memory, and nothing else. If the thread cannot be created, IsRunning()
/// and ListWorkers() show it. The start, the end and the abort of the thread are logged (module
/// Ithread); a line that cannot be written is lost.
/// @par Thread safety
/// Controlling thread. IsRunning(), WaitUntilFinished(), AddCallback() and RemoveCallback() may be
/// called from any thread. Several threads may start, stop, cancel and abort one object at the same
/// time: the object then has one thread at most. None of them may use the object after another has
/// destroyed it.
class TOLVEX_EXPORT IThread
{
public:
    /// Observer of an IThread. Both operations do nothing by default; override what you need.
    /// @par Thread safety
    /// Called on the threads stated below. An observer of several workers may be called on several
    /// threads at the same time.
    class TOLVEX_EXPORT IThreadDelegate
    {
    public:
        /// Before an observer is destroyed, remove it from its workers.
        virtual ~IThreadDelegate();

        /// Called by DoCallback(), normally on the worker thread.
        ///
        /// @param thread  The worker.
        /// @param data    The argument of DoCallback(); not owned.
        virtual void Invoke(IThread* thread, void* data);

        /// Called when the worker has been stopped: on the thread that called Stop(), or on the
        /// worker thread after Cancel().
        ///
        /// @param thread  The worker. It deletes itself after the last of these calls if
        ///                deleteOnStop is set.
        virtual void InvokeStop(IThread* thread);
    };

    /// Makes a worker without a thread: Start() creates one.
    IThread();

    /// Stops the thread, but calls no delegate.
    ///
    /// Waits up to two seconds for a thread that was cancelled or aborted. The calling thread is
    /// not cancelled while it waits.
    virtual ~IThread();

    IThread(const IThread&) = delete;
    IThread& operator=(const IThread&) = delete;

    /// Starts the thread; does nothing if it already runs.
    ///
    /// Does not wait for the new thread. Logs the start, so the call blocks while another thread
    /// composes a line. If the thread of an earlier start is still ending after Cancel() or
    /// Abort(), the new thread waits for it, for two seconds at most, before it calls RunBefore().
    /// The old thread ends its pass and does not call Run() again.
    /// @note A failure to create the thread is not reported, and the start is logged all the same.
    /// IsRunning() is then false, WaitUntilFinished() true, and Start() may be called again.
    /// @throws std::bad_alloc without memory; no thread was started then.
    void Start();

    /// Stops the thread, waits for its end, and calls DoCallbackStop().
    ///
    /// Polls every 100 ms, without a time limit. Returns at once if the thread does not run. Never
    /// call it on the worker thread, which would wait for itself forever.
    /// @note After Cancel() it returns at once too, although the thread may still be in its last
    /// pass. Do not destroy the object before WaitUntilFinished() returns true.
    void Stop();

    /// Asks the thread to end after its current pass, and returns at once. The worker thread then
    /// calls DoCallbackStop() itself.
    ///
    /// Do not destroy the object before WaitUntilFinished() returns true; Stop() does not wait for
    /// this thread. Do not combine it with deleteOnStop.
    void Cancel();

    /// Cancels the thread (pthread_cancel()): it ends at its next cancellation point.
    ///
    /// The object counts as finished at once. No delegate is called. If the thread was still in a
    /// pass, RunAfter() is not called and the end is not logged. The stack of the thread is
    /// unwound, so destructors run; `catch (...)` and `noexcept` around a cancellation point end
    /// the process. Do not destroy the object before WaitUntilFinished() returns true.
    ///
    /// The abort is logged, so the call blocks as long as that log line does.
    void Abort();

    /// Makes the thread sleep instead of calling Run(), from the next pass on.
    void Pause() { Base::StoreShared(paused, true); }

    /// Ends a pause. The thread notices it within 100 ms.
    void Resume() { Base::StoreShared(paused, false); }

    /// @return true from Start() until the thread is stopped, cancelled or aborted, or ends. In a
    /// child of fork() it is true for a worker that runs in the parent.
    bool IsRunning() const
    {
        return Base::LoadShared(threadHandle) != 0 && Base::LoadShared(running) &&
               !Base::LoadShared(finished);
    }

    /// Waits until no thread uses this object; polls.
    ///
    /// After it has returned true the object may be destroyed, also after Cancel() and Abort().
    /// @param limit  Longest time to wait in ms; 0 or less tests once.
    /// @return false when the limit has passed, and if the object was never started.
    bool WaitUntilFinished(std::chrono::milliseconds limit) const;

    /// Sets the name for log lines, and for the OS thread of the next Start(). Call it only while
    /// no thread runs.
    ///
    /// @param name  More than 15 characters leave the OS thread unnamed.
    void SetThreadName(const std::string& name) { threadName = name; }

    /// Requests a scheduling policy and priority. The next and later calls of Start() apply them.
    ///
    /// If the system refuses, a warning is logged and the thread keeps the scheduling of the thread
    /// that created it.
    /// @param policy    Such as SCHED_FIFO.
    /// @param priority  In the range that sched_setscheduler() allows for the policy.
    /// @par Thread safety
    /// Thread-safe.
    void SetPriority(int policy, int priority);

    /// Requests the processors on which the thread may run. Otherwise as SetPriority().
    /// @param cpus  The allowed processors.
    /// @par Thread safety
    /// Thread-safe.
    void SetCpuAffinity(const cpu_set_t& cpus);

    /// The body of the thread. Public for the thread's entry only.
    void RunThread();

    /// Entry of the thread.
    /// @param self  The IThread; not owned.
    /// @return null, always.
    static void* RunPosixThread(void* self);

    /// Appends a delegate, unless the pointer is already in the list.
    ///
    /// Do not add or remove delegates while another thread calls them. A delegate may do both
    /// while it is called.
    /// @param delegate  Not owned; must outlive the registration.
    /// @throws std::system_error when the mutex cannot be locked.
    void AddCallback(IThreadDelegate* delegate);

    /// Removes a delegate, with the restriction stated at AddCallback().
    /// @param delegate  An unknown pointer is ignored.
    /// @throws std::system_error when the mutex cannot be locked.
    void RemoveCallback(IThreadDelegate* delegate);

    /// Calls Invoke() of the delegates in the order in which they were added. Worker thread.
    ///
    /// @param data  Passed on as it is; not owned.
    void DoCallback(void* data);

    /// Calls InvokeStop() of the delegates, then deletes the object if deleteOnStop is set.
    void DoCallbackStop();

    /// Sleeps in steps, so that a thread that is being stopped wakes after one step.
    ///
    /// Sleeps floor(total / step) * step. If the worker is already stopped, or if the step is not
    /// shorter than the total, it sleeps the total in one piece. Returns at once while the object
    /// is being destroyed.
    /// @param total  Time to sleep in ms.
    /// @param step   Time in ms after which a stop is noticed at the latest.
    /// @note A step of 0 or less (and below the total) does not sleep: the call spins until the
    /// thread is stopped.
    void ThreadSleep(const std::chrono::milliseconds& total, const std::chrono::milliseconds& step);

protected:
    /// Called once on the new thread, before the first pass.
    virtual void RunBefore();

    /// One pass of work. The worker thread calls it again and again, without a pause.
    virtual void Run() = 0;

    /// Called once on the worker thread after the last pass.
    virtual void RunAfter();

    /// Called by Stop(), on the thread that called Stop(), before the worker is asked to end.
    ///
    /// If a class overrides it, Stop() tests once before its first sleep whether the worker has
    /// ended. An override that calls the base version counts as not overridden.
    virtual void Stopping();

    /// Stops the thread as Stop() does. Then waits for a thread that was cancelled (without a
    /// limit) or aborted (two seconds at most). Call it first in the destructor of the most derived
    /// class.
    ///
    /// The calling thread is not cancelled while it waits. Clears deleteOnStop, so the object does
    /// not delete itself.
    void StopBeforeDestruction();

    pthread_t threadHandle = 0;               ///< shared: the current thread; 0: none
    std::uint32_t stackSize = 524288;         ///< bytes; @note not read: every thread has 524288
    std::vector<IThreadDelegate*> delegates;  ///< in insertion order; not owned
    std::mutex delegatesMutex;     ///< guards delegates in add and remove; not held in their calls
    bool running = false;          ///< shared: the thread makes another pass
    bool destroying = false;       ///< shared: set by the destructor
    bool cancelRequested = false;  ///< shared: the worker calls the stop delegates itself
    bool finished = false;         ///< shared: the thread body has ended, or was aborted
    bool benchmark = false;  ///< shared: each pass is timed and logged; for derived classes to set
    bool deleteOnStop = false;  ///< shared: deletes the object after Stop(); derived classes set it
    std::string threadName;     ///< of the OS thread, and in log lines
    bool paused = false;        ///< shared: the thread sleeps instead of calling Run()
    bool started = false;       ///< shared: threadHandle holds the handle of the new thread

private:
    class RunScope;
    friend class WorkerInspector;

    bool CreateThread(const std::string& name, WorkerThreads& workers, WorkerRefusals& refusals);
    void RunPasses(const RunScope& scope);
    void RunTimedPass();
    void NotifyCancelled(WorkerThreads& workers, std::string& name);
    void AwaitHandOver() const;

    bool stoppingOverridden = false;  ///< shared: a derived class overrides Stopping()
    const std::shared_ptr<WorkerThreads> workerThreads;  ///< co-owned by the worker's threads
};

}  // namespace Tolvex::Interfaces
