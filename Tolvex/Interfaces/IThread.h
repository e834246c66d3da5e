#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <vector>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Interfaces {

class ThreadRoll;

/// Base of a worker thread: calls Run() pass after pass until it is stopped.
///
/// **An object whose thread may still run must be stopped before its most derived part is
/// destroyed.** The destructor of this class stops the thread too, but by then Run() is gone, and a
/// thread that calls it ends the process ("pure virtual function called"). So create the object as
/// `Stopped<Worker>` (Stopped.h), or call StopBeforeDestruction() first thing in the most derived
/// destructor.
///
/// A derived class supplies Run(), one pass of work, which paces itself, normally with
/// ThreadSleep(). Observers (IThreadDelegate) are told of the work and of the stop. The thread is a
/// detached POSIX thread with a stack of 524288 bytes. An object can be started again once its
/// thread has ended or was aborted. See examples/WorkerWithObserver.cpp and
/// examples/PauseAndResume.cpp.
/// @par Errors
/// None is reported: a thread that cannot be created shows in IsRunning() only. Start, end and
/// abort of the thread are logged (module Ithread); a line that cannot be written is lost.
/// @par Thread safety
/// Controlling thread. IsRunning(), WaitUntilFinished(), AddCallback() and RemoveCallback() may be
/// called from any thread. When several threads start, stop, cancel or abort one object at a time,
/// one thread of the object results at most; each of them still must not use the object after
/// another has destroyed it.
class TOLVEX_EXPORT IThread
{
public:
    /// Observer of an IThread. Both operations do nothing here; override what is needed.
    /// @par Thread safety
    /// Called on the threads stated below; an observer of several workers on several at a time.
    class TOLVEX_EXPORT IThreadDelegate
    {
    public:
        /// The observer has to be removed before.
        virtual ~IThreadDelegate();

        /// Called by DoCallback(), normally on the worker thread.
        ///
        /// @param thread  The worker.
        /// @param data    What the worker hands out; not owned.
        virtual void Invoke(IThread* thread, void* data);

        /// Called once the thread has been stopped: on the thread that called Stop(), or on the
        /// worker when it was ended by Cancel().
        ///
        /// @param thread  The worker; may delete itself after the last of these calls.
        virtual void InvokeStop(IThread* thread);
    };

    /// Makes a worker without a thread: Start() creates one.
    IThread();

    /// Stops the thread, without telling the delegates, and releases name and list.
    ///
    /// Not cancelled while it waits. A thread that was cancelled or aborted is given up to two
    /// seconds to leave the object.
    virtual ~IThread();

    IThread(const IThread&) = delete;
    IThread& operator=(const IThread&) = delete;

    /// Starts the thread; does nothing when it already runs. Does not block.
    ///
    /// When the thread of an earlier start is still ending after Cancel() or Abort(), the new one
    /// waits for it (two seconds at most) before it calls RunBefore(); the old one ends its pass
    /// and calls Run() no more.
    /// @note A failure to create the thread is not reported, and the start is logged all the same;
    /// IsRunning() is then false and Start() may be called again.
    void Start();

    /// Stops the thread, waits for its end, and calls DoCallbackStop().
    ///
    /// Polls every 100 ms, without a time limit. Returns at once when the thread does not run. Must
    /// not be called on the worker thread, which would wait for itself for ever.
    /// @note After Cancel() it returns at once, too, though the thread may still be in its last
    /// pass. The object must not be destroyed in that time: see WaitUntilFinished().
    void Stop();

    /// Asks the thread to end after its pass and returns at once. The worker then calls
    /// DoCallbackStop() itself.
    ///
    /// The object must not be destroyed before the thread has ended: see WaitUntilFinished().
    /// Stop() does not wait for it, and deleteOnStop is not meant for this way of ending.
    void Cancel();

    /// Cancels the thread (pthread_cancel()): it ends at its next cancellation point.
    ///
    /// The object counts as finished at once. No delegate is called, RunAfter() is not called for a
    /// thread that was still in its passes, and the end is not logged. What the pass has
    /// acquired is released if it stands in objects with destructors; `catch (...)` and `noexcept`
    /// around a cancellation point end the process. The object must not be destroyed before the
    /// thread is gone: see WaitUntilFinished().
    void Abort();

    /// Makes the thread sleep instead of calling Run(), from the next pass on.
    void Pause() { Base::StoreShared(paused, true); }

    /// Ends a pause; the thread notices it within 100 ms.
    void Resume() { Base::StoreShared(paused, false); }

    /// @return whether the thread was started, and neither stopped nor cancelled, aborted, ended.
    bool IsRunning() const
    {
        return Base::LoadShared(threadHandle) != 0 && Base::LoadShared(running) &&
               !Base::LoadShared(finished);
    }

    /// Waits until the thread has ended its work on this object; polls.
    ///
    /// When it has returned true the object may be destroyed, also after Cancel() and Abort().
    /// @param limit  Longest time to wait in ms; 0 or less tests once.
    /// @return false when the time is over; also when the object was never started.
    bool WaitUntilFinished(std::chrono::milliseconds limit) const;

    /// Names the object for its log lines, and its thread from the next Start() on.
    ///
    /// @param name  More than 15 characters leave the OS thread unnamed. To be set while no thread
    ///              runs.
    void SetThreadName(const std::string& name) { threadName = name; }

    /// The body of the thread. Public for the thread's entry only.
    void RunThread();

    /// Entry of the thread.
    /// @param self  The IThread; not owned.
    /// @return null, always.
    static void* RunPosixThread(void* self);

    /// Appends a delegate; a pointer that is listed already is not added again.
    ///
    /// @param delegate  Not owned; must outlive the registration. To be added and removed only
    ///                  while no callback is being made, except by a delegate inside its callback.
    /// @throws std::system_error when the mutex cannot be locked.
    void AddCallback(IThreadDelegate* delegate);

    /// Removes a delegate. As for AddCallback() otherwise.
    /// @param delegate  An unknown pointer is ignored.
    void RemoveCallback(IThreadDelegate* delegate);

    /// Calls Invoke() of the delegates, in the order in which they were added. Worker thread.
    ///
    /// @param data  Handed on as it is; not owned.
    void DoCallback(void* data);

    /// Calls InvokeStop() of the delegates, then deletes the object if deleteOnStop is set.
    void DoCallbackStop();

    /// Sleeps in steps, so that a thread that is being stopped wakes after one step.
    ///
    /// Sleeps floor(total / step) * step; when the thread does not run, or the step is not shorter
    /// than the total, sleeps the total in one piece. Returns at once while the object is being
    /// destroyed.
    /// @param total  Time to sleep in ms.
    /// @param step   Longest time in ms in which a stop goes unnoticed.
    /// @note A step of 0 or less (and below the total) does not sleep: the call then spins until
    /// the thread is stopped.
    void ThreadSleep(const std::chrono::milliseconds& total, const std::chrono::milliseconds& step);

protected:
    /// Called once on the new thread, before the first pass.
    virtual void RunBefore();

    /// One pass of work, called on the worker thread again and again without a pause in between.
    virtual void Run() = 0;

    /// Called once on the worker thread after the last pass.
    virtual void RunAfter();

    /// Called by Stop() on the stopping thread, before the thread is asked to end.
    ///
    /// With a hook of its own a class is looked at before Stop() first sleeps. A hook that calls
    /// this one counts as none there.
    virtual void Stopping();

    /// What the destructor of the most derived class does first: Stop(), then wait also for a
    /// thread that was cancelled (without limit) or aborted (two seconds at most).
    ///
    /// Not cancelled while it waits. The object does not delete itself here.
    void StopBeforeDestruction();

    pthread_t threadHandle = 0;               ///< shared; the current thread, 0 for none
    std::uint32_t stackSize = 524288;         ///< bytes; @note not read: every thread has 524288
    std::vector<IThreadDelegate*> delegates;  ///< in insertion order; not owned
    std::mutex delegatesMutex;     ///< guards delegates in add and remove; not held for their calls
    bool running = false;          ///< shared: the passes go on
    bool destroying = false;       ///< shared: set by the destructor
    bool cancelRequested = false;  ///< shared: the thread calls the stop delegates itself
    bool finished = false;         ///< shared: the thread body has ended, or was aborted
    bool benchmark = false;  ///< shared: each pass is timed and logged; for derived classes to set
    bool deleteOnStop = false;  ///< shared: the object deletes itself after Stop(); as above
    std::string threadName;     ///< of the OS thread and in log lines
    bool paused = false;        ///< shared: the thread sleeps instead of calling Run()
    bool started = false;       ///< shared: threadHandle holds the new thread's handle

private:
    class Attendance;

    bool CreateThread(const std::string& name, ThreadRoll& roll);
    void RunPasses(const Attendance& attendance);
    void RunTimedPass();
    void NotifyCancelled(ThreadRoll& roll, std::string& name);
    void AwaitHandOver() const;
    bool IsCallerToGoOn() const;

    const std::shared_ptr<ThreadRoll> threadRoll;
};

}  // namespace Tolvex::Interfaces
