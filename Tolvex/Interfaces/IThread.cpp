#include "Tolvex/Interfaces/IThread.h"

#include <algorithm>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/Private/Sleep.h"
#include "Tolvex/Interfaces/Private/ThreadRoll.h"
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
constexpr milliseconds oldThreadLimit(2000);  // for an older thread of the object to leave it

thread_local const IThread* baseStoppingOf = nullptr;  // last object whose own hook did nothing

}  // namespace

// ---------------------------------------------------------------------------------- one thread

/// A thread's stay in its object. Ends with End(), or when the thread is unwound.
///
/// From then on the thread does not touch the object, which may be gone.
class IThread::Attendance
{
public:
    explicit Attendance(IThread& visited)
        : object(visited), roll(visited.threadRoll), number(roll->OwnNumber())
    {
    }

    ~Attendance() { End(); }

    Attendance(const Attendance&) = delete;
    Attendance& operator=(const Attendance&) = delete;

    ThreadRoll& Roll() const { return *roll; }

    /// @return false once a newer thread of the object was created.
    bool IsNewest() const { return roll->IsNewest(number); }

    /// Waits for threads of earlier starts that were cancelled or aborted and still end.
    void AwaitOlderThreads() const { roll->AwaitOlder(number, oldThreadLimit); }

    /// Acts on an Abort() that is being made at this moment, or was made before.
    void ObeyAbort() const;

    /// Hands the object back. @return false when the thread was aborted.
    bool End();

private:
    IThread& object;
    const std::shared_ptr<ThreadRoll> roll;
    const ThreadRoll::Number number;
    bool ended = false;
};

void IThread::Attendance::ObeyAbort() const
{
    {
        // Abort() clears "running" some moments before it cancels; it holds the lock throughout.
        const std::lock_guard<std::mutex> lock(roll->mutex);
    }
    pthread_testcancel();
}

bool IThread::Attendance::End()
{
    if (ended) {
        return false;
    }
    ended = true;

    const std::lock_guard<std::mutex> lock(roll->mutex);
    const bool aborted = roll->IsAborted(number);
    if (!aborted && !roll->IsObjectGone() && IsNewest()) {
        // Required: a handle that was never handed over is left as it is.
        if (LoadShared(object.started)) {
            StoreShared(object.threadHandle, 0);
        }
        StoreShared(object.cancelRequested, false);
        StoreShared(object.finished, true);
    }
    roll->Leave(number);
    return !aborted;
}

void* IThread::RunPosixThread(void* self)
{
    static_cast<IThread*>(self)->RunThread();
    return nullptr;
}

void IThread::RunThread()
{
    Attendance attendance(*this);
    attendance.ObeyAbort();
    attendance.AwaitOlderThreads();

    RunBefore();
    RunPasses(attendance);
    attendance.ObeyAbort();
    RunAfter();

    std::string name = threadName;  // a delegate may delete the object, or rename it
    NotifyCancelled(attendance.Roll(), name);
    if (!attendance.End()) {
        return;
    }
    // Nothing of the object may be touched from here on: Stop() returns, and it may be deleted.
    if (name.empty()) {
        LogLine(LogType::Info, LogModule::Ithread)
            << "Thread (name not defined) has finished the execution";
    } else {
        LogLine(LogType::Info, LogModule::Ithread)
            << "Thread (" << name << ") has finished the execution";
    }
}

void IThread::RunPasses(const Attendance& attendance)
{
    // A thread that is being destroyed makes no more passes: Run() may be gone already.
    while (LoadShared(running) && !LoadShared(destroying) && attendance.IsNewest()) {
        if (LoadShared(paused)) {
            ThreadSleep(pausePollPeriod, pauseStep);
        } else if (LoadShared(benchmark)) {
            RunTimedPass();
        } else {
            Run();
        }
    }
}

void IThread::RunTimedPass()
{
    // Required: a pass is timed by the wall clock, which may be set meanwhile.
    const auto begin = std::chrono::system_clock::now();
    Run();
    const auto end = std::chrono::system_clock::now();

    const std::chrono::nanoseconds duration = end - begin;
    const double seconds = static_cast<double>(duration.count()) / 1000000000.0;
    // Required: the line tells passes per second, though its label says runtime.
    LogLine(LogType::Info, LogModule::Ithread)
        << "BENCHMARKING: Thread [" << threadName << "] runtime:[" << 1.0 / seconds << "]";
}

void IThread::NotifyCancelled(ThreadRoll& roll, std::string& name)
{
    if (LoadShared(cancelRequested)) {
        DoCallbackStop();

        const std::lock_guard<std::mutex> lock(roll.mutex);
        if (roll.IsObjectGone()) {
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

// ---------------------------------------------------------------------------------- lifecycle

IThread::IThread() : threadRoll(std::make_shared<ThreadRoll>()) {}

IThread::~IThread()
{
    const Base::NoCancellation scope;
    StoreShared(destroying, true);
    Stop();
    threadRoll->AwaitOthers(oldThreadLimit);

    const std::lock_guard<std::mutex> lock(threadRoll->mutex);
    threadRoll->MarkObjectGone();
}

void IThread::StopBeforeDestruction()
{
    const Base::NoCancellation scope;
    StoreShared(deleteOnStop, false);
    Stop();
    threadRoll->AwaitOthersNotAborted();
    threadRoll->AwaitOthers(oldThreadLimit);
}

void IThread::Start()
{
    // Once it is created the thread may end, and the object be deleted, at any moment.
    const std::string name = threadName;
    const std::shared_ptr<ThreadRoll> roll = threadRoll;
    if (!CreateThread(name, *roll)) {
        return;
    }

    // Required: the start is logged also when no thread could be created.
    // Instead: IsRunning() tells whether there is one.
    if (name.empty()) {
        LogLine(LogType::Info, LogModule::Ithread)
            << "Thread (name not defined) has started the execution";
    } else {
        LogLine(LogType::Info, LogModule::Ithread)
            << "Thread (" << name << ") has started the execution";
    }
}

bool IThread::CreateThread(const std::string& name, ThreadRoll& roll)
{
    // The new thread waits for this lock, so it finds its handle stored.
    const std::lock_guard<std::mutex> lock(roll.mutex);
    if (IsRunning()) {
        return false;
    }
    const ThreadRoll::Number number = roll.NextNumber();
    StoreShared(finished, false);
    StoreShared(running, true);
    StoreShared(started, false);

    // Required: the field stackSize is not read; every thread has the stack of the workers.
    // Required: a failure to create it is silent and "running" stays set; the handle is then 0.
    pthread_t created = 0;
    if (Base::StartDetachedThread(created, name.c_str(), RunPosixThread, this) == 0) {
        roll.Enter(created, number);
    }
    StoreShared(threadHandle, created);
    StoreShared(started, true);
    return true;
}

void IThread::Stop()
{
    // Required: returns at once after Cancel(), too, though the last pass may still go on.
    // Instead: WaitUntilFinished().
    if (LoadShared(threadHandle) == 0 || !LoadShared(running) || LoadShared(finished)) {
        return;
    }

    baseStoppingOf = nullptr;
    Stopping();
    const bool stoppingOverridden = baseStoppingOf != this;

    StoreShared(running, false);
    // Required: only a class with its own Stopping() may find the thread ended without a sleep.
    if (!stoppingOverridden) {
        Base::SleepFor(stopPollPeriod);
    }
    while (!LoadShared(finished)) {
        Base::SleepFor(stopPollPeriod);
    }
    DoCallbackStop();
}

void IThread::Cancel()
{
    const std::lock_guard<std::mutex> lock(threadRoll->mutex);
    if (IsRunning()) {
        // In this order: the thread that sees the one must see the other.
        StoreShared(cancelRequested, true);
        StoreShared(running, false);
    }
}

void IThread::Abort()
{
    const std::string name = threadName;
    {
        // The thread cannot leave the object, nor end, while the lock is held.
        const std::lock_guard<std::mutex> lock(threadRoll->mutex);
        if (!IsRunning()) {
            return;
        }
        StoreShared(running, false);
        StoreShared(finished, true);
        // Required: a failure to cancel is silent, and the object counts as finished all the same.
        if (pthread_cancel(LoadShared(threadHandle)) != 0) {
            return;
        }
        // Required: no delegate is called, and the handle stays.
        threadRoll->MarkAborted(LoadShared(threadHandle));
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
        if (LoadShared(finished) && !threadRoll->HasOthers(ThreadRoll::Others::All)) {
            return true;
        }
        // Compared in milliseconds: the limit may be too long to be counted in the clock's unit.
        const auto waited =
            std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
        if (waited >= limit) {
            return false;
        }
        Base::SleepFor(std::min(finishPollPeriod, limit - waited));
    }
}

// -------------------------------------------------------------------------- hooks and delegates

void IThread::RunBefore() {}

void IThread::RunAfter() {}

void IThread::Stopping()
{
    baseStoppingOf = this;  // Tells Stop() that the class has no hook of its own.
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
    // Required: a delegate that removes itself hides the next from the walk, and one that is added
    // is called: the walk goes by index, reads the size anew each time and takes no lock.
    for (std::size_t i = 0; !LoadShared(destroying) && i < delegates.size(); ++i) {
        if (delegates[i] != nullptr) {
            delegates[i]->Invoke(this, data);
        }
    }
}

void IThread::DoCallbackStop()
{
    // Required: the stop that the destructor makes is told to nobody.
    // Instead: Stopped, which stops the thread before.
    if (LoadShared(destroying)) {
        return;
    }
    // A delegate may delete the object: its roll tells, and stays.
    const std::shared_ptr<ThreadRoll> roll = threadRoll;
    for (std::size_t i = 0; !LoadShared(destroying) && i < delegates.size(); ++i) {
        if (delegates[i] != nullptr) {
            delegates[i]->InvokeStop(this);
        }
        if (const std::lock_guard<std::mutex> lock(roll->mutex); roll->IsObjectGone()) {
            return;
        }
    }
    // Required: deleteOnStop deletes the object also when there are no delegates.
    if (LoadShared(deleteOnStop)) {
        delete this;
    }
}

// -------------------------------------------------------------------------------------- sleeping

void IThread::ThreadSleep(const milliseconds& total, const milliseconds& step)
{
    if (LoadShared(destroying)) {
        return;
    }
    // Required: this one is slept in one piece, which a stop does not end.
    if (!IsRunning() || step >= total) {
        Base::SleepFor(total);
        return;
    }

    milliseconds elapsed = step;
    for (;;) {
        Base::SleepFor(step);
        // Required: a step of 0 or less never adds up to the total, so the loop spins until
        // stopped.
        const bool over = step > milliseconds::zero() && elapsed > total - step;
        if (!IsCallerToGoOn() || over || LoadShared(destroying)) {
            return;
        }
        elapsed += std::max(step, milliseconds::zero());
    }
}

bool IThread::IsCallerToGoOn() const
{
    return IsRunning() && threadRoll->IsNewest(threadRoll->OwnNumber());
}

}  // namespace Tolvex::Interfaces
