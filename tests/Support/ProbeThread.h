/// @file
/// A worker whose hooks come from the test and whose protected state the test can see.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <pthread.h>
#include <thread>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IThread.h"

#include "tests/Support/CancellableStack.h"
#include "tests/Support/Pace.h"

namespace Tolvex::Support {

/// Sleeps. A cancellation takes effect only after the sleep, where the thread sanitizer can follow.
inline void Nap(std::chrono::milliseconds duration)
{
    int before = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    std::this_thread::sleep_for(duration);
    pthread_setcancelstate(before, nullptr);
    pthread_testcancel();
}

/// Runs until Stop(), Cancel() or Abort(). Set the hooks before Start().
class ProbeThread : public Interfaces::IThread
{
public:
    ~ProbeThread() override { StopBeforeDestruction(); }

    using IThread::IsRunning;

    using IThread::benchmark;
    using IThread::cancelRequested;
    using IThread::delegates;
    using IThread::delegatesMutex;
    using IThread::deleteOnStop;
    using IThread::destroying;
    using IThread::finished;
    using IThread::paused;
    using IThread::running;
    using IThread::stackSize;
    using IThread::started;
    using IThread::threadHandle;
    using IThread::threadName;

    std::function<void()> onRunBefore = [] {};
    std::function<void()> onRun = [] {};
    std::function<void()> onRunAfter = [] {};

    std::atomic<int> passes = 0;  ///< counted by the hooks of the test, not here

    /// Sets the state of a running worker without a thread.
    void PretendToRun()
    {
        Base::StoreShared(threadHandle, pthread_self());
        Base::StoreShared(running, true);
        Base::StoreShared(finished, false);
    }

    void EndPretence()
    {
        Base::StoreShared(running, false);
        Base::StoreShared(threadHandle, 0);
    }

protected:
    void RunBefore() override
    {
        const CancellableStack stack;
        onRunBefore();
    }
    void Run() override
    {
        const CancellableStack stack;
        onRun();
    }
    void RunAfter() override
    {
        const CancellableStack stack;
        onRunAfter();
    }
};

}  // namespace Tolvex::Support
