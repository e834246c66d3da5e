#include "Tolvex/Interfaces/IThread.h"

#include <algorithm>
#include <cstring>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/Private/Sleep.h"
#include "Tolvex/Interfaces/Private/WorkerList.h"
#include "Tolvex/Interfaces/Private/WorkerThreads.h"
#include "Tolvex/Log/LogLine.h"

namespace Tolvex::Interfaces {
namespace {

using Base::LoadShared;
using Base::StoreShared;
using Ilog::LogLine;
using Ilog::LogType;
using std::chrono::milliseconds;

constexpr milliseconds stopPollPeriod(100);
constexpr milliseconds pausePollPeriod(100);
constexpr milliseconds pauseStep(1000);  // Longer than the period: the pause is one plain sleep.
constexpr milliseconds handOverPollPeriod(20);
constexpr int handOverPolls = 501;
constexpr milliseconds finishPollPeriod(1);
constexpr milliseconds oldThreadLimit(2000);  // longest wait for a thread of an earlier run

/// @param error  With which the system has refused the setting; 0: not refused.
void LogRefusal(const std::string& name, const char* setting, int error)
{
    if (error == 0) {
        return;
    }
    char buffer[128];  // No allocation: Start() must not throw once the thread runs.
    LogLine(LogType::Warning, LogModule::Ithread)
        << "Thread (" << (name.empty() ? "name not defined" : name) << ") runs without its "
        << setting << ": " << strerror_r(error, buffer, sizeof buffer);
}

}  // namespace

/// The scope of one run of a worker: lasts until End(), or until the thread is unwound.
///
/// After it the thread does not touch the object, which may be destroyed.
class IThread::RunScope
{
public:
    explicit RunScope(IThread& worker)
        : object(worker), workers(worker.workerThreads), run(workers->OwnRun())
    {
        if (run.clock == nullptr) {
            run.clock = std::make_shared<PassClock>();  // RunThread() was called by hand.
        }
    }

    ~RunScope() { End(); }

    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;

    WorkerThreads& Workers() const { return *workers; }
    PassClock& Clock() const { return *run.clock; }

    /// @return false once a newer thread of the object was created.
    bool IsNewest() const { return workers->IsNewest(run.number); }

    /// Waits for threads of earlier runs that were cancelled or aborted and have not ended yet.
    void AwaitOlderThreads() const { workers->AwaitOlder(run.number, oldThreadLimit); }

    /// Ends the thread here if Abort() was called, or is being called at this moment.
    void ObeyAbort() const;

    /// Gives up the object. @return false when the thread was aborted.
    bool End();

private:
    IThread& object;
    const std::shared_ptr<WorkerThreads> workers;
    WorkerThreads::Run run;
    bool ended = false;
};

void IThread::RunScope::ObeyAbort() const
{
    {
        // Abort() clears "running" before it cancels the thread, and holds the lock for both.
        const std::lock_guard<std::mutex> lock(workers->mutex);
    }
    pthread_testcancel();
}

bool IThread::RunScope::End()
{
    if (ended) {
        return false;
    }
    ended = true;

    const std::lock_guard<std::mutex> lock(workers->mutex);
    const bool aborted = workers->IsAborted(run.number);
    if (!aborted && !workers->IsObjectGone() && IsNewest()) {
        // If AwaitHandOver() has given up, the handle stays as it is.
        if (LoadShared(object.started)) {
            StoreShared(object.threadHandle, 0);
        }
        StoreShared(object.cancelRequested, false);
        StoreShared(object.finished, true);
    }
    run.clock->Rest();  // The thread may have been unwound.
    workers->Remove(run.number);
    return !aborted;
}

void* IThread::RunPosixThread(void* self)
{
    static_cast<IThread*>(self)->RunThread();
    return nullptr;
}

void IThread::RunThread()
{
    RunScope scope(*this);
    scope.ObeyAbort();
    scope.AwaitOlderThreads();

    RunBefore();
    RunPasses(scope);
    scope.ObeyAbort();
    RunAfter();

    std::string name = threadName;  // a delegate may delete the object, or rename it
    NotifyCancelled(scope.Workers(), name);
    if (!scope.End()) {
        return;
    }
    // The object may not be touched from here on: Stop() returns now, and its caller may delete it.
    if (name.empty()) {
        LogLine(LogType::Info, LogModule::Ithread)
            << "Thread (name not defined) has finished the execution";
    } else {
        LogLine(LogType::Info, LogModule::Ithread)
            << "Thread (" << name << ") has finished the execution";
    }
}

void IThread::RunPasses(const RunScope& scope)
{
    PassClock& clock = scope.Clock();
    clock.BeginPass();
    // No pass begins while the object is being destroyed: Run() may be gone already.
    while (LoadShared(running) && !LoadShared(destroying) && scope.IsNewest()) {
        if (LoadShared(paused)) {
            clock.Rest();
            ThreadSleep(pausePollPeriod, pauseStep);
            clock.BeginPass();
            continue;
        }
        if (LoadShared(benchmark)) {
            RunTimedPass();
        } else {
            Run();
        }
        clock.EndPass();
    }
    clock.Rest();
}

void IThread::RunTimedPass()
{
    // Required: the wall clock times the pass, although it may be set during the pass.
    const auto begin = std::chrono::system_clock::now();
    Run();
    const auto end = std::chrono::system_clock::now();

    const std::chrono::nanoseconds duration = end - begin;
    const double seconds = static_cast<double>(duration.count()) / 1000000000.0;
    // Required: the number is passes per second, although its label says "runtime".
    LogLine(LogType::Info, LogModule::Ithread)
        << "BENCHMARKING: Thread [" << threadName << "] runtime:[" << 1.0 / seconds << "]";
}

void IThread::NotifyCancelled(WorkerThreads& workers, std::string& name)
{
    if (LoadShared(cancelRequested)) {
        DoCallbackStop();

        const std::lock_guard<std::mutex> lock(workers.mutex);
        if (workers.IsObjectGone()) {
            return;  // deleteOnStop, or a delegate, has deleted it.
        }
        StoreShared(cancelRequested, false);
        name = threadName;
    }
    AwaitHandOver();
}

void IThread::AwaitHandOver() const
{
    for (int polls = 0; polls < handOverPolls && !LoadShared(started); ++polls) {
        Base::SleepFor(handOverPollPeriod);
    }
}

IThread::IThread() : workerThreads(std::make_shared<WorkerThreads>()) {}

IThread::~IThread()
{
    const Base::NoCancellation scope;
    StoreShared(destroying, true);
    Stop();
    UnlistWorker(*this);
    if (!workerThreads->AreOfThisProcess()) {
        return;
    }
    workerThreads->AwaitOthers(oldThreadLimit);

    const std::lock_guard<std::mutex> lock(workerThreads->mutex);
    workerThreads->MarkObjectGone();
}

void IThread::StopBeforeDestruction()
{
    const Base::NoCancellation scope;
    StoreShared(deleteOnStop, false);
    Stop();
    workerThreads->AwaitOthersNotAborted();
    workerThreads->AwaitOthers(oldThreadLimit);
}

void IThread::Start()
{
    // Copied: after its creation the thread may end, and the object may be deleted, at any moment.
    const std::string name = threadName;
    const std::shared_ptr<WorkerThreads> workers = workerThreads;
    WorkerRefusals refusals;
    ListWorker(*this);
    if (!CreateThread(name, *workers, refusals)) {
        return;
    }
    LogRefusal(name, "priority", refusals.priority);
    LogRefusal(name, "CPU affinity", refusals.affinity);

    // Required: the start is logged even if the thread could not be created. IsRunning() tells
    // callers whether there is a thread.
    if (name.empty()) {
        LogLine(LogType::Info, LogModule::Ithread)
            << "Thread (name not defined) has started the execution";
    } else {
        LogLine(LogType::Info, LogModule::Ithread)
            << "Thread (" << name << ") has started the execution";
    }
}

bool IThread::CreateThread(const std::string& name, WorkerThreads& workers,
                           WorkerRefusals& refusals)
{
    // The new thread waits for this lock, so it finds its handle stored.
    const std::lock_guard<std::mutex> lock(workers.mutex);
    if (IsRunning()) {
        return false;
    }
    workers.nameAtStart = name;
    workers.clock = std::make_shared<PassClock>();
    const WorkerThreads::RunNumber run = workers.NextRun();
    StoreShared(finished, false);
    StoreShared(running, true);
    StoreShared(started, false);

    // Required: a failure is not reported, and "running" stays set. The handle is 0 then, so
    // IsRunning() is false.
    pthread_t created = 0;
    if (Base::StartDetachedThread(created, name.c_str(), RunPosixThread, this) == 0) {
        workers.Add(created, run);
        refusals = workers.ApplySettings(created);
    }
    StoreShared(threadHandle, created);
    StoreShared(started, true);
    return true;
}

void IThread::SetPriority(int policy, int priority)
{
    const std::lock_guard<std::mutex> lock(workerThreads->mutex);
    workerThreads->policy = policy;
    workerThreads->priority.sched_priority = priority;
}

void IThread::SetCpuAffinity(const cpu_set_t& cpus)
{
    const std::lock_guard<std::mutex> lock(workerThreads->mutex);
    workerThreads->cpus = cpus;
}

void IThread::Stop()
{
    // Required: returns at once after Cancel() and Abort() too, although the thread may not have
    // ended. WaitUntilFinished() waits for its end.
    if (LoadShared(threadHandle) == 0 || !LoadShared(running) || LoadShared(finished)) {
        return;
    }

    // In a forked child there is no thread to wait for.
    if (!workerThreads->AreOfThisProcess()) {
        return;
    }

    StoreShared(stoppingOverridden, true);
    Stopping();  // The version of this class clears the flag.

    WorkerThreads::RunNumber run = WorkerThreads::noRun;
    {
        const std::lock_guard<std::mutex> lock(workerThreads->mutex);
        run = workerThreads->NewestRun();
        StoreShared(running, false);
    }
    // Required: sleeps once before the first test of "finished", unless a derived class overrides
    // Stopping().
    if (!LoadShared(stoppingOverridden)) {
        Base::SleepFor(stopPollPeriod);
    }
    // Another thread may start the object again between two looks, which clears "finished".
    while (!LoadShared(finished) && (workerThreads->IsNewest(run) || workerThreads->HasRun(run))) {
        Base::SleepFor(stopPollPeriod);
    }
    DoCallbackStop();
}

void IThread::Cancel()
{
    const std::lock_guard<std::mutex> lock(workerThreads->mutex);
    if (IsRunning()) {
        // In this order: a thread that finds "running" cleared finds the request too.
        StoreShared(cancelRequested, true);
        StoreShared(running, false);
    }
}

void IThread::Abort()
{
    const std::string name = threadName;
    {
        // The thread cannot leave the object, nor end, while the lock is held.
        const std::lock_guard<std::mutex> lock(workerThreads->mutex);
        if (!IsRunning()) {
            return;
        }
        StoreShared(running, false);
        StoreShared(finished, true);
        // A failure to cancel is not reported; the object counts as finished all the same.
        if (pthread_cancel(LoadShared(threadHandle)) != 0) {
            return;
        }
        // The handle is not cleared; the next Start() replaces it.
        workerThreads->MarkAborted(LoadShared(threadHandle));
    }

    if (name.empty()) {
        // Required text: the doubled "has" is part of the message.
        LogLine(LogType::Warning, LogModule::Ithread)
            << "Thread (name not defined) has has been aborted";
    } else {
        LogLine(LogType::Warning, LogModule::Ithread) << "Thread (" << name << ") has been aborted";
    }
}

bool IThread::WaitUntilFinished(milliseconds limit) const
{
    const auto begin = std::chrono::steady_clock::now();
    for (;;) {
        // After a start that failed there is no thread, though "finished" is not set.
        const bool startFailed = LoadShared(started) && LoadShared(threadHandle) == 0;
        if ((LoadShared(finished) || startFailed) &&
            !workerThreads->HasOthers(WorkerThreads::Others::All)) {
            return true;
        }
        // Compared in milliseconds: the limit may be out of range in the unit of the clock.
        const auto waited =
            std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
        if (waited >= limit) {
            return false;
        }
        Base::SleepFor(std::min(finishPollPeriod, limit - waited));
    }
}

void IThread::RunBefore() {}

void IThread::RunAfter() {}

void IThread::Stopping()
{
    StoreShared(stoppingOverridden, false);
}

IThread::IThreadDelegate::~IThreadDelegate() = default;

void IThread::IThreadDelegate::Invoke(IThread* /*thread*/, void* /*data*/) {}

void IThread::IThreadDelegate::InvokeStop(IThread* /*thread*/) {}

void IThread::AddCallback(IThreadDelegate* delegate)
{
    const std::lock_guard<std::mutex> lock(delegatesMutex);
    if (std::find(delegates.begin(), delegates.end(), delegate) == delegates.end()) {
        delegates.push_back(delegate);
    }
}

void IThread::RemoveCallback(IThreadDelegate* delegate)
{
    const std::lock_guard<std::mutex> lock(delegatesMutex);
    const auto found = std::find(delegates.begin(), delegates.end(), delegate);
    if (found != delegates.end()) {
        delegates.erase(found);
    }
}

void IThread::DoCallback(void* data)
{
    // Required: takes no lock, and reads the size again after each call. A delegate may therefore
    // add and remove delegates. One that it adds is called; after it removes itself, the next one
    // is skipped.
    for (std::size_t i = 0; !LoadShared(destroying) && i < delegates.size(); ++i) {
        if (delegates[i] != nullptr) {
            delegates[i]->Invoke(this, data);
        }
    }
}

void IThread::DoCallbackStop()
{
    // The stop in the destructor calls no delegate; Stopped makes one that does.
    if (LoadShared(destroying)) {
        return;
    }
    // A delegate may delete the object. The list of its threads outlives it and says so.
    const std::shared_ptr<WorkerThreads> workers = workerThreads;
    for (std::size_t i = 0; !LoadShared(destroying) && i < delegates.size(); ++i) {
        if (delegates[i] != nullptr) {
            delegates[i]->InvokeStop(this);
        }
        if (const std::lock_guard<std::mutex> lock(workers->mutex); workers->IsObjectGone()) {
            return;
        }
    }
    if (LoadShared(deleteOnStop)) {
        delete this;
    }
}

void IThread::ThreadSleep(const milliseconds& total, const milliseconds& step)
{
    // Required: a worker that is already stopped sleeps the total in one piece.
    // The order of the reads: if the stop of the destructor is seen, so is the destruction.
    const bool inOnePiece = !IsRunning() || step >= total;
    if (LoadShared(destroying)) {
        return;
    }
    if (inOnePiece) {
        Base::SleepFor(total);
        return;
    }

    // Looked up once, because it takes the lock: the loop below may turn without a pause, and
    // would keep Start(), Cancel() and Abort() from the lock.
    const WorkerThreads::RunNumber run = workerThreads->OwnRun().number;

    milliseconds elapsed = step;
    for (;;) {
        Base::SleepFor(step);
        // Required: steps of 0 or less never add up to the total, so the loop spins without a sleep
        // until the thread is stopped.
        const bool over = step > milliseconds::zero() && elapsed > total - step;
        if (!IsRunning() || !workerThreads->IsNewest(run) || over || LoadShared(destroying)) {
            return;
        }
        elapsed += std::max(step, milliseconds::zero());
    }
}

}  // namespace Tolvex::Interfaces
