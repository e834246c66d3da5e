#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IThread.h"

#include "tests/Support/CountingNew.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"
#include "tests/Support/SleepingThread.h"

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Tolvex::Base::StoreShared;
using Tolvex::Interfaces::IThread;
using Tolvex::Support::AllocationBudget;
using Tolvex::Support::Eventually;
using Tolvex::Support::LogFile;
using Tolvex::Support::patience;
using Tolvex::Support::ProbeThread;
using Tolvex::Support::underThreadSanitizer;

/// Records its calls in a list, and does what the test wants.
class Observer : public IThread::IThreadDelegate
{
public:
    Observer(std::string ownName, std::vector<std::string>& list)
        : name(std::move(ownName)), calls(list)
    {
    }

    void Invoke(IThread* thread, void* data) override
    {
        calls.push_back(name);
        lastThread = thread;
        lastData = data;
        onInvoke();
    }

    void InvokeStop(IThread* thread) override
    {
        calls.push_back(name + " stop");
        lastThread = thread;
        onInvokeStop();
    }

    std::function<void()> onInvoke = [] {};
    std::function<void()> onInvokeStop = [] {};
    IThread* lastThread = nullptr;
    void* lastData = nullptr;

private:
    std::string name;
    std::vector<std::string>& calls;
};

class IThreadDelegateTest : public ::testing::Test
{
protected:
    void AddAll()
    {
        probe.AddCallback(&a);
        probe.AddCallback(&b);
        probe.AddCallback(&c);
    }

    std::vector<std::string> calls;
    Observer a{"a", calls};
    Observer b{"b", calls};
    Observer c{"c", calls};
    ProbeThread probe;
};

// --------------------------------------------------------------------------------------- the list

TEST_F(IThreadDelegateTest, DelegatesAreCalledInTheOrderInWhichTheyWereAdded)
{
    AddAll();
    int data = 0;

    probe.DoCallback(&data);
    probe.DoCallbackStop();

    EXPECT_THAT(calls, ElementsAre("a", "b", "c", "a stop", "b stop", "c stop"));
    EXPECT_EQ(a.lastThread, &probe);
    EXPECT_EQ(a.lastData, &data);
}

TEST_F(IThreadDelegateTest, DelegateAddedTwiceIsKeptOnceAndOneRemovalEmptiesTheList)
{
    probe.AddCallback(&a);
    probe.AddCallback(&a);
    EXPECT_THAT(probe.delegates, ElementsAre(&a));

    probe.RemoveCallback(&a);

    EXPECT_THAT(probe.delegates, IsEmpty());
}

TEST_F(IThreadDelegateTest, RemovalKeepsTheOrderOfTheOthersAndIgnoresAnUnknownPointer)
{
    AddAll();

    probe.RemoveCallback(&b);
    probe.RemoveCallback(&b);
    probe.RemoveCallback(nullptr);

    EXPECT_THAT(probe.delegates, ElementsAre(&a, &c));
}

TEST_F(IThreadDelegateTest, NullEntryIsKeptInTheListAndSkippedByBothWalks)
{
    probe.AddCallback(&a);
    probe.AddCallback(nullptr);
    probe.AddCallback(nullptr);
    probe.AddCallback(&b);
    EXPECT_THAT(probe.delegates, ElementsAre(&a, nullptr, &b));

    probe.DoCallback(nullptr);
    probe.DoCallbackStop();

    EXPECT_THAT(calls, ElementsAre("a", "b", "a stop", "b stop"));
}

TEST_F(IThreadDelegateTest, EmptyListIsWalkedWithoutACall)
{
    probe.DoCallback(nullptr);
    probe.DoCallbackStop();

    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(IThreadDelegateTest, BaseDelegateDoesNothing)
{
    IThread::IThreadDelegate delegate;
    probe.AddCallback(&delegate);

    probe.DoCallback(nullptr);
    probe.DoCallbackStop();

    EXPECT_THAT(probe.delegates, ElementsAre(&delegate));
}

TEST_F(IThreadDelegateTest, DelegatesAreNotOwned)
{
    const auto owner = std::make_unique<Observer>("owned", calls);
    {
        ProbeThread other;
        other.AddCallback(owner.get());
    }

    owner->Invoke(nullptr, nullptr);

    EXPECT_THAT(calls, ElementsAre("owned"));
}

/// Makes the mutex fail instead of block when it is locked a second time.
void CheckForErrors(std::mutex& mutex)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_destroy(mutex.native_handle());
    pthread_mutex_init(mutex.native_handle(), &attributes);
    pthread_mutexattr_destroy(&attributes);
}

TEST_F(IThreadDelegateTest, FailureToLockThrowsSystemErrorAndChangesNothing)
{
    probe.AddCallback(&a);
    CheckForErrors(probe.delegatesMutex);
    const std::lock_guard<std::mutex> lock(probe.delegatesMutex);

    EXPECT_THROW(probe.AddCallback(&b), std::system_error);
    EXPECT_THROW(probe.RemoveCallback(&a), std::system_error);

    EXPECT_THAT(probe.delegates, ElementsAre(&a));
}

TEST_F(IThreadDelegateTest, AppendThatFailsLeavesTheListUnlockedAndAsItWas)
{
    probe.delegates.shrink_to_fit();
    {
        const AllocationBudget none(0);
        EXPECT_THROW(probe.AddCallback(&a), std::bad_alloc);
    }

    EXPECT_THAT(probe.delegates, IsEmpty());
    ASSERT_TRUE(probe.delegatesMutex.try_lock());
    probe.delegatesMutex.unlock();
}

TEST_F(IThreadDelegateTest, ListChangesFromManyThreadsAtOnceLoseNothing)
{
    constexpr int count = 8;
    std::vector<std::unique_ptr<Observer>> observers;
    std::vector<std::thread> adders;
    observers.reserve(count);
    adders.reserve(count);
    for (int i = 0; i < count; ++i) {
        observers.push_back(std::make_unique<Observer>("x", calls));
    }
    for (int i = 0; i < count; ++i) {
        adders.emplace_back([this, observer = observers[static_cast<std::size_t>(i)].get()] {
            for (int round = 0; round < 500; ++round) {
                probe.AddCallback(observer);
                probe.RemoveCallback(observer);
            }
            probe.AddCallback(observer);
        });
    }
    for (std::thread& adder : adders) {
        adder.join();
    }

    EXPECT_EQ(probe.delegates.size(), static_cast<std::size_t>(count));
}

// ---------------------------------------------------------------------------------------- the walk

TEST_F(IThreadDelegateTest, WalksTakeNoLock)
{
    AddAll();
    const std::lock_guard<std::mutex> lock(probe.delegatesMutex);

    probe.DoCallback(nullptr);
    probe.DoCallbackStop();

    EXPECT_EQ(calls.size(), 6U);
}

TEST_F(IThreadDelegateTest, AddAndRemoveWaitForTheLock)
{
    std::atomic<bool> added = false;
    std::thread adder;
    {
        const std::lock_guard<std::mutex> lock(probe.delegatesMutex);
        adder = Tolvex::Support::SleepingThread([&] {
            probe.AddCallback(&a);
            added = true;
            probe.RemoveCallback(&a);
        });
        EXPECT_FALSE(added);
    }
    adder.join();

    EXPECT_TRUE(added);
    EXPECT_THAT(probe.delegates, IsEmpty());
}

TEST_F(IThreadDelegateTest, DelegateAddedDuringTheWalkIsCalledInIt)
{
    probe.AddCallback(&a);
    a.onInvoke = [this] { probe.AddCallback(&b); };
    b.onInvoke = [this] { probe.AddCallback(&c); };

    probe.DoCallback(nullptr);

    EXPECT_THAT(calls, ElementsAre("a", "b", "c"));
}

TEST_F(IThreadDelegateTest, DelegateThatRemovesItselfHidesTheNextOneFromTheWalk)
{
    AddAll();
    a.onInvoke = [this] { probe.RemoveCallback(&a); };

    probe.DoCallback(nullptr);

    EXPECT_THAT(calls, ElementsAre("a", "c"));
}

TEST_F(IThreadDelegateTest, DelegateThatRemovesAllEndsTheWalk)
{
    AddAll();
    b.onInvoke = [this] {
        probe.RemoveCallback(&a);
        probe.RemoveCallback(&b);
        probe.RemoveCallback(&c);
    };

    probe.DoCallback(nullptr);

    EXPECT_THAT(calls, ElementsAre("a", "b"));
}

TEST_F(IThreadDelegateTest, DestroyingObjectCallsNoDelegate)
{
    AddAll();
    StoreShared(probe.destroying, true);

    probe.DoCallback(nullptr);
    probe.DoCallbackStop();

    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(IThreadDelegateTest, DestructionDuringTheWalkEndsIt)
{
    AddAll();
    b.onInvoke = [this] { StoreShared(probe.destroying, true); };
    probe.DoCallback(nullptr);
    StoreShared(probe.destroying, false);
    a.onInvokeStop = [this] { StoreShared(probe.destroying, true); };
    probe.DoCallbackStop();

    EXPECT_THAT(calls, ElementsAre("a", "b", "a stop"));
}

// ----------------------------------------------------------------------------------- by the thread

TEST_F(IThreadDelegateTest, WorkerTellsItsDelegatesOfEachPassOnItsOwnThread)
{
    pthread_t seenOn = 0;
    std::atomic<int> passes = 0;
    a.onInvoke = [&] {
        seenOn = pthread_self();
        ++passes;
    };
    probe.AddCallback(&a);
    pthread_t worker = 0;
    probe.onRun = [&] {
        worker = pthread_self();
        probe.DoCallback(&passes);
        probe.ThreadSleep(1ms, 1s);
    };

    probe.Start();
    ASSERT_TRUE(Eventually([&] { return passes >= 3; }));
    probe.Stop();

    EXPECT_NE(pthread_equal(seenOn, worker), 0);
    EXPECT_EQ(a.lastData, &passes);
    EXPECT_EQ(calls.back(), "a stop");
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "a stop"), 1);
}

TEST_F(IThreadDelegateTest, DestructorOfARunningObjectTellsNoDelegate)
{
    // Only the destructor's own stop is silent: a worker that stops itself first tells them.
    class Bare : public IThread
    {
    public:
        using IThread::destroying;
        ~Bare() override
        {
            // As the base class does, while Run() still exists.
            StoreShared(destroying, true);
            Stop();
        }
        std::atomic<bool> sleeps = false;

    protected:
        void Run() override
        {
            sleeps = true;
            ThreadSleep(1h, 10ms);
        }
    };
    auto bare = std::make_unique<Bare>();
    bare->AddCallback(&a);
    bare->Start();
    ASSERT_TRUE(Eventually([&] { return bare->sleeps.load(); }));

    bare.reset();

    EXPECT_THAT(calls, IsEmpty());
}

/// Lets the base class stop it. The counts of its passes and hooks are outside the object.
class UnstoppedThread : public IThread
{
public:
    struct Seen
    {
        std::atomic<bool> sleeps = false;
        std::atomic<bool> woke = false;
        std::atomic<bool> hookCalled = false;
    };

    explicit UnstoppedThread(Seen& seenOutside) : seen(seenOutside) {}

protected:
    void Run() override
    {
        Seen& outside = seen;
        outside.sleeps = true;
        ThreadSleep(1h, 10ms);
        outside.woke = true;
    }

    void RunAfter() override { seen.hookCalled = true; }
    void Stopping() override { seen.hookCalled = true; }

private:
    Seen& seen;
};

TEST_F(IThreadDelegateTest, DestructorWakesAndStopsTheThreadWithTheHooksOfTheBaseClass)
{
    if (underThreadSanitizer) {
        GTEST_SKIP() << "the thread is in the object while its destructors change its type";
    }
    UnstoppedThread::Seen seen;
    {
        UnstoppedThread worker(seen);
        worker.AddCallback(&a);
        worker.Start();
        ASSERT_TRUE(Eventually([&] { return seen.sleeps.load(); }));
    }

    EXPECT_TRUE(seen.woke);
    EXPECT_FALSE(seen.hookCalled);
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(IThreadDelegateTest, StartInTheStopNotificationOfStopRunsTheThreadAgain)
{
    std::atomic<int> starts = 0;
    probe.onRunBefore = [&] { ++starts; };
    probe.onRun = [&] { probe.ThreadSleep(1ms, 1s); };
    a.onInvokeStop = [&] {
        if (starts < 2) {
            probe.Start();
        }
    };
    probe.AddCallback(&a);
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return starts == 1; }));

    probe.Stop();

    EXPECT_TRUE(Eventually([&] { return starts == 2; }));
    EXPECT_TRUE(probe.IsRunning());
    probe.Stop();  // while the counter of the notification still exists
}

TEST_F(IThreadDelegateTest, StartInTheStopNotificationOfCancelRunsANewThread)
{
    std::atomic<int> starts = 0;
    std::atomic<int> notifications = 0;
    probe.onRunBefore = [&] { ++starts; };
    probe.onRun = [&] { probe.ThreadSleep(1ms, 1s); };
    a.onInvokeStop = [&] {
        if (++notifications == 1) {
            probe.Start();
        }
    };
    probe.AddCallback(&a);
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return starts == 1; }));

    probe.Cancel();

    ASSERT_TRUE(Eventually([&] { return starts == 2; }));
    EXPECT_TRUE(probe.IsRunning());
    probe.Stop();
    EXPECT_FALSE(probe.IsRunning());
    EXPECT_EQ(notifications, 2);
}

TEST_F(IThreadDelegateTest, StartInACallbackDuringThePassDoesNothing)
{
    std::atomic<int> starts = 0;
    std::atomic<int> passes = 0;
    probe.onRunBefore = [&] { ++starts; };
    a.onInvoke = [&] {
        if (passes <= 3) {  // A later call may come after Stop() has begun, and start a new thread.
            probe.Start();
        }
    };
    probe.AddCallback(&a);
    probe.onRun = [&] {
        probe.DoCallback(nullptr);
        ++passes;
        probe.ThreadSleep(1ms, 1s);
    };

    probe.Start();
    ASSERT_TRUE(Eventually([&] { return passes > 3; }));
    probe.Stop();

    EXPECT_EQ(starts, 1);
}

TEST_F(IThreadDelegateTest, CancelInACallbackEndsTheThreadAfterItsPass)
{
    int passes = 0;
    a.onInvoke = [&] { probe.Cancel(); };
    probe.AddCallback(&a);
    probe.onRun = [&] {
        probe.DoCallback(nullptr);
        ++passes;
    };

    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));

    EXPECT_EQ(passes, 1);
    EXPECT_THAT(calls, ElementsAre("a", "a stop"));
}

TEST_F(IThreadDelegateTest, NameGivenInTheStopNotificationOfCancelStandsInTheFinishLine)
{
    LogFile log;
    probe.SetThreadName("worker");
    probe.onRun = [&] { probe.ThreadSleep(1ms, 1s); };
    a.onInvokeStop = [&] { probe.SetThreadName("renamed"); };
    probe.AddCallback(&a);
    probe.Start();

    probe.Cancel();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));

    EXPECT_TRUE(Eventually([&] {
        const std::vector<std::string> lines = log.TakeLines();
        return std::count(lines.begin(), lines.end(),
                          "[#Ithread]Thread (renamed) has finished the execution") == 1;
    }));
}

// ----------------------------------------------------------------------------------- deleteOnStop

/// Reports its destruction.
class SelfDeletingThread : public ProbeThread
{
public:
    explicit SelfDeletingThread(std::atomic<bool>& deleted) : gone(deleted)
    {
        deleteOnStop = true;
        SetThreadName("worker");
        onRun = [this] { ThreadSleep(1ms, 1s); };
    }

    ~SelfDeletingThread() override
    {
        StopBeforeDestruction();
        gone = true;
    }

private:
    std::atomic<bool>& gone;
};

TEST_F(IThreadDelegateTest, StopNotificationWithAnEmptyListDeletesTheObject)
{
    std::atomic<bool> gone = false;
    auto* const worker = new SelfDeletingThread(gone);

    worker->DoCallbackStop();

    EXPECT_TRUE(gone);
}

TEST_F(IThreadDelegateTest, DelegateThatDeletesTheObjectEndsTheWalk)
{
    for (const bool byCancel : {false, true}) {
        std::atomic<bool> gone = false;
        auto* const worker = new SelfDeletingThread(gone);
        a.onInvokeStop = [worker] { delete worker; };
        worker->AddCallback(&a);
        worker->AddCallback(&b);
        worker->Start();

        byCancel ? worker->Cancel() : worker->Stop();

        EXPECT_TRUE(Eventually([&] { return gone.load(); }));
    }
    EXPECT_THAT(calls, ElementsAre("a stop", "a stop"));
}

TEST_F(IThreadDelegateTest, StopTellsTheDelegatesThenDeletesTheObject)
{
    LogFile log;
    std::atomic<bool> gone = false;
    bool goneWhenTold = true;
    a.onInvokeStop = [&] { goneWhenTold = gone; };
    auto* const worker = new SelfDeletingThread(gone);
    worker->AddCallback(&a);
    worker->Start();

    worker->Stop();

    EXPECT_TRUE(gone);
    EXPECT_FALSE(goneWhenTold);
    EXPECT_THAT(calls, ElementsAre("a stop"));
    EXPECT_THAT(log.TakeLines(),
                ElementsAre("[#Ithread]Thread (worker) has started the execution",
                            "[#Ithread]Thread (worker) has finished the execution"));
}

TEST_F(IThreadDelegateTest, StopNotificationDuringDestructionDeletesNothing)
{
    std::atomic<bool> gone = false;
    auto* const worker = new SelfDeletingThread(gone);
    StoreShared(worker->destroying, true);

    worker->DoCallbackStop();

    EXPECT_FALSE(gone);
    delete worker;
}

TEST_F(IThreadDelegateTest, DeletingARunningObjectThatDeletesItselfDeletesItOnce)
{
    std::atomic<bool> gone = false;
    auto* const worker = new SelfDeletingThread(gone);
    worker->Start();

    delete worker;

    EXPECT_TRUE(gone);
}

TEST_F(IThreadDelegateTest, CancelOfAnObjectThatDeletesItselfDeletesItAndTheThreadEnds)
{
    LogFile log;
    std::atomic<bool> gone = false;
    auto* const worker = new SelfDeletingThread(gone);
    worker->Start();

    worker->Cancel();

    ASSERT_TRUE(Eventually([&] { return gone.load(); }));
    std::vector<std::string> lines;
    EXPECT_TRUE(Eventually([&] {
        for (const std::string& line : log.TakeLines()) {
            lines.push_back(line);
        }
        return lines.size() == 2;
    }));
    EXPECT_THAT(lines, ElementsAre("[#Ithread]Thread (worker) has started the execution",
                                   "[#Ithread]Thread (worker) has finished the execution"));
}

}  // namespace
