#include "Tolvex/Interfaces/IThread.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <future>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/Stopped.h"
#include "Tolvex/Log/LogLine.h"

#include "tests/Support/LogFile.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"
#include "tests/Support/RealFunction.h"

namespace {

using Tolvex::Support::RealFunction;

std::atomic<bool> creationFails = false;
std::atomic<bool> cancellingFails = false;
std::atomic<int> cancellings = 0;
thread_local const timespec* wallClock = nullptr;  ///< replaces the real one for the thread

}  // namespace

extern "C" int pthread_create(pthread_t* handle, const pthread_attr_t* attributes,
                              void* (*entry)(void*), void* argument)
{
    using Function = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static auto* const real = RealFunction<Function>("pthread_create");
    return creationFails ? EAGAIN : real(handle, attributes, entry, argument);
}

extern "C" int pthread_cancel(pthread_t handle)
{
    static auto* const real = RealFunction<int(pthread_t)>("pthread_cancel");
    ++cancellings;
    return cancellingFails ? ESRCH : real(handle);
}

extern "C" int clock_gettime(clockid_t clock, timespec* reading)
{
    if (clock == CLOCK_REALTIME && wallClock != nullptr) {
        *reading = *wallClock;
        return 0;
    }
    static auto* const real = RealFunction<int(clockid_t, timespec*)>("clock_gettime");
    return real(clock, reading);
}

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Tolvex::Base::LoadShared;
using Tolvex::Base::StoreShared;
using Tolvex::Interfaces::IThread;
using Tolvex::Interfaces::Stopped;
using Tolvex::Support::Eventually;
using Tolvex::Support::LogFile;
using Tolvex::Support::Nap;
using Tolvex::Support::patience;
using Tolvex::Support::ProbeThread;
using Tolvex::Support::underThreadSanitizer;

const std::string startLine = "[#Ithread]Thread (worker) has started the execution";
const std::string finishLine = "[#Ithread]Thread (worker) has finished the execution";
const std::string abortLine = "[WARNING][#Ithread]Thread (worker) has been aborted";

// ------------------------------------------------------------------------------------ the matrix

/// The events in their order; outlives the worker that reports them.
class Trace
{
public:
    void Add(const std::string& event)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        events += (events.empty() ? "" : " ") + event;
    }

    std::string Take()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(events, "");
    }

private:
    std::mutex mutex;
    std::string events;
};

/// Reports its hooks and stop notifications; a pass can be held without a cancellation point.
class TracedThread : public IThread, private IThread::IThreadDelegate
{
public:
    explicit TracedThread(Trace& report) : trace(report), creator(pthread_self())
    {
        SetThreadName("worker");
        AddCallback(this);
    }

    using IThread::cancelRequested;
    using IThread::finished;
    using IThread::paused;
    using IThread::running;
    using IThread::started;
    using IThread::threadHandle;

    std::atomic<int> passes = 0;
    std::atomic<bool> passIsHeld = false;

protected:
    void RunBefore() override { trace.Add("RunBefore"); }

    void Run() override
    {
        ++passes;
        while (passIsHeld) {
            std::this_thread::yield();
        }
        Nap(1ms);
    }

    void RunAfter() override { trace.Add("RunAfter"); }
    void Stopping() override { trace.Add("Stopping"); }

private:
    void InvokeStop(IThread* /*thread*/) override
    {
        trace.Add(pthread_equal(pthread_self(), creator) != 0 ? "InvokeStop@caller"
                                                              : "InvokeStop@worker");
    }

    Trace& trace;
    pthread_t creator;
};

enum class State
{
    Idle,
    Running,
    Paused,
    Stopping,
    Finished,
    Aborted,
    WithoutThread
};
enum class Operation
{
    Start,
    Stop,
    Cancel,
    Abort,
    Pause,
    Resume,
    Destructor
};

struct Flags
{
    bool handle;
    bool running;
    bool finished;
    bool paused;

    bool operator==(const Flags&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Flags& flags)
{
    return stream << "{handle " << flags.handle << ", running " << flags.running << ", finished "
                  << flags.finished << ", paused " << flags.paused << "}";
}

constexpr Flags idle{false, false, false, false};
constexpr Flags runs{true, true, false, false};
constexpr Flags pausedRun{true, true, false, true};
constexpr Flags ended{false, false, true, false};
constexpr Flags endedInPause{false, false, true, true};
constexpr Flags aborted{true, false, true, false};
constexpr Flags abortedInPause{true, false, true, true};
constexpr Flags withoutThread{false, true, false, false};

/// One cell: the state when the object is at rest again after the operation, and the events.
struct Cell
{
    State state;
    Operation operation;
    Flags flags;  ///< not compared after the destructor
    std::vector<std::string> lines;
    std::string events;
};

const std::string cancelledEnd = "RunAfter InvokeStop@worker";
const std::string stoppedEnd = "Stopping RunAfter InvokeStop@caller";

const std::vector<Cell> cells = {
    {State::Idle, Operation::Start, runs, {startLine}, "RunBefore"},
    {State::Idle, Operation::Stop, idle, {}, ""},
    {State::Idle, Operation::Cancel, idle, {}, ""},
    {State::Idle, Operation::Abort, idle, {}, ""},
    {State::Idle, Operation::Pause, {false, false, false, true}, {}, ""},
    {State::Idle, Operation::Resume, idle, {}, ""},
    {State::Idle, Operation::Destructor, idle, {}, ""},

    {State::Running, Operation::Start, runs, {}, ""},
    {State::Running, Operation::Stop, ended, {finishLine}, stoppedEnd},
    {State::Running, Operation::Cancel, ended, {finishLine}, cancelledEnd},
    {State::Running, Operation::Abort, aborted, {abortLine}, ""},
    {State::Running, Operation::Pause, pausedRun, {}, ""},
    {State::Running, Operation::Resume, runs, {}, ""},
    {State::Running, Operation::Destructor, ended, {finishLine}, stoppedEnd},

    {State::Paused, Operation::Start, pausedRun, {}, ""},
    {State::Paused, Operation::Stop, endedInPause, {finishLine}, stoppedEnd},
    {State::Paused, Operation::Cancel, endedInPause, {finishLine}, cancelledEnd},
    {State::Paused, Operation::Abort, abortedInPause, {abortLine}, ""},
    {State::Paused, Operation::Pause, pausedRun, {}, ""},
    {State::Paused, Operation::Resume, runs, {}, ""},
    {State::Paused, Operation::Destructor, endedInPause, {finishLine}, stoppedEnd},

    // The pass of the cancelled thread is held during the operation, and released after it.
    {State::Stopping, Operation::Start, runs, {startLine, finishLine}, cancelledEnd + " RunBefore"},
    {State::Stopping, Operation::Stop, ended, {finishLine}, cancelledEnd},
    {State::Stopping, Operation::Cancel, ended, {finishLine}, cancelledEnd},
    {State::Stopping, Operation::Abort, ended, {finishLine}, cancelledEnd},
    {State::Stopping, Operation::Pause, endedInPause, {finishLine}, cancelledEnd},
    {State::Stopping, Operation::Resume, ended, {finishLine}, cancelledEnd},
    {State::Stopping, Operation::Destructor, ended, {finishLine}, cancelledEnd},

    {State::Finished, Operation::Start, runs, {startLine}, "RunBefore"},
    {State::Finished, Operation::Stop, ended, {}, ""},
    {State::Finished, Operation::Cancel, ended, {}, ""},
    {State::Finished, Operation::Abort, ended, {}, ""},
    {State::Finished, Operation::Pause, endedInPause, {}, ""},
    {State::Finished, Operation::Resume, ended, {}, ""},
    {State::Finished, Operation::Destructor, ended, {}, ""},

    {State::Aborted, Operation::Start, runs, {startLine}, "RunBefore"},
    {State::Aborted, Operation::Stop, aborted, {}, ""},
    {State::Aborted, Operation::Cancel, aborted, {}, ""},
    {State::Aborted, Operation::Abort, aborted, {}, ""},
    {State::Aborted, Operation::Pause, abortedInPause, {}, ""},
    {State::Aborted, Operation::Resume, aborted, {}, ""},
    {State::Aborted, Operation::Destructor, aborted, {}, ""},

    {State::WithoutThread, Operation::Start, runs, {startLine}, "RunBefore"},
    {State::WithoutThread, Operation::Stop, withoutThread, {}, ""},
    {State::WithoutThread, Operation::Cancel, withoutThread, {}, ""},
    {State::WithoutThread, Operation::Abort, withoutThread, {}, ""},
    {State::WithoutThread, Operation::Pause, {false, true, false, true}, {}, ""},
    {State::WithoutThread, Operation::Resume, withoutThread, {}, ""},
    {State::WithoutThread, Operation::Destructor, withoutThread, {}, ""},
};

constexpr const char* stateNames[] = {"Idle",     "Running", "Paused",       "Stopping",
                                      "Finished", "Aborted", "WithoutThread"};
constexpr const char* operationNames[] = {"Start", "Stop",   "Cancel",    "Abort",
                                          "Pause", "Resume", "Destructor"};

std::string NameOf(const Cell& cell)
{
    return std::string(stateNames[static_cast<int>(cell.state)]) +
           operationNames[static_cast<int>(cell.operation)];
}

void PrintTo(const Cell& cell, std::ostream* stream)
{
    *stream << NameOf(cell);
}

class IThreadMatrixTest : public ::testing::TestWithParam<Cell>
{
protected:
    ~IThreadMatrixTest() override { creationFails = false; }

    void Enter(State state)
    {
        switch (state) {
            case State::Idle:
                return;
            case State::Running:
                return StartAndAwaitPasses();
            case State::Paused:
                StartAndAwaitPasses();
                worker->Pause();
                return AwaitPause();
            case State::Stopping:
                worker->passIsHeld = true;
                worker->Start();
                ASSERT_TRUE(Eventually([&] { return worker->passes > 0; }));
                return worker->Cancel();
            case State::Finished:
                StartAndAwaitPasses();
                return worker->Stop();
            case State::Aborted:
                StartAndAwaitPasses();
                worker->Abort();
                ASSERT_TRUE(worker->WaitUntilFinished(patience));
                return;
            case State::WithoutThread:
                creationFails = true;
                worker->Start();
                creationFails = false;
                return;
        }
    }

    void Do(Operation operation)
    {
        switch (operation) {
            case Operation::Start:
                return worker->Start();
            case Operation::Stop:
                return worker->Stop();
            case Operation::Cancel:
                return worker->Cancel();
            case Operation::Abort:
                return worker->Abort();
            case Operation::Pause:
                return worker->Pause();
            case Operation::Resume:
                return worker->Resume();
            case Operation::Destructor:
                return Destroy();
        }
    }

    /// Waits until the object is at rest.
    void AwaitRest()
    {
        worker->passIsHeld = false;
        if (!LoadShared(worker->running)) {
            if (LoadShared(worker->finished) || LoadShared(worker->threadHandle) != 0) {
                ASSERT_TRUE(worker->WaitUntilFinished(patience));
            }
        } else if (worker->IsRunning()) {
            LoadShared(worker->paused) ? AwaitPause() : AwaitPasses();
        }
    }

    Flags TakeFlags() const
    {
        return {LoadShared(worker->threadHandle) != 0, LoadShared(worker->running),
                LoadShared(worker->finished), LoadShared(worker->paused)};
    }

    Trace trace;
    std::unique_ptr<Stopped<TracedThread>> worker = std::make_unique<Stopped<TracedThread>>(trace);
    LogFile log;

private:
    void StartAndAwaitPasses()
    {
        worker->Start();
        AwaitPasses();
    }

    void AwaitPasses()
    {
        const int before = worker->passes;
        ASSERT_TRUE(Eventually([&] { return worker->passes > before; }));
    }

    /// The pass during which the pause began may still be counted.
    void AwaitPause()
    {
        int before = 0;
        ASSERT_TRUE(Eventually([&] {
            const int now = worker->passes;
            std::this_thread::sleep_for(50ms);
            return std::exchange(before, now) == now && worker->passes == now;
        }));
    }

    void Destroy()
    {
        // The destructor waits for a held pass, so the pass is released meanwhile.
        std::thread release([&held = worker->passIsHeld] {
            std::this_thread::sleep_for(20ms);
            held = false;
        });
        if (!worker->passIsHeld) {
            release.join();
        }
        worker.reset();
        if (release.joinable()) {
            release.join();
        }
    }
};

TEST_P(IThreadMatrixTest, OperationInStateLeavesFlagsLinesHooksAndNotifications)
{
    const Cell& cell = GetParam();
    if (underThreadSanitizer && cell.state == State::Paused && cell.operation == Operation::Abort) {
        GTEST_SKIP() << "the thread is cancelled in the sleep of the pause";
    }
    Enter(cell.state);
    log.TakeLines();
    trace.Take();

    Do(cell.operation);

    if (worker != nullptr) {
        AwaitRest();
        EXPECT_EQ(TakeFlags(), cell.flags);
        EXPECT_FALSE(LoadShared(worker->cancelRequested));
        EXPECT_EQ(worker->IsRunning(), cell.flags.handle && cell.flags.running);
    }
    EXPECT_EQ(trace.Take(), cell.events);
    EXPECT_TRUE(Eventually([&, lines = std::vector<std::string>()]() mutable {
        for (const std::string& line : log.TakeLines()) {
            lines.push_back(line);
        }
        return lines.size() >= cell.lines.size() && lines == cell.lines;
    }));
}

INSTANTIATE_TEST_SUITE_P(All, IThreadMatrixTest, ::testing::ValuesIn(cells),
                         [](const auto& cell) { return NameOf(cell.param); });

// -------------------------------------------------------------------------------------- creation

TEST(IThreadTest, FieldsAreInitialisedAsTheStateIdleSays)
{
    const ProbeThread probe;

    EXPECT_EQ(probe.threadHandle, 0U);
    EXPECT_EQ(probe.stackSize, 524288U);
    EXPECT_THAT(probe.delegates, IsEmpty());
    EXPECT_FALSE(probe.running || probe.destroying || probe.cancelRequested || probe.finished);
    EXPECT_FALSE(probe.benchmark || probe.deleteOnStop || probe.paused || probe.started);
    EXPECT_EQ(probe.threadName, "");
}

TEST(IThreadTest, FieldsHaveTheirTypesAndStandInTheirOrder)
{
    const ProbeThread probe;
    const auto address = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };

    const std::vector<std::uintptr_t> fields = {
        address(probe.threadHandle),    address(probe.stackSize),  address(probe.delegates),
        address(probe.delegatesMutex),  address(probe.running),    address(probe.destroying),
        address(probe.cancelRequested), address(probe.finished),   address(probe.benchmark),
        address(probe.deleteOnStop),    address(probe.threadName), address(probe.paused),
        address(probe.started)};

    EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end()));
    EXPECT_TRUE((std::is_same_v<decltype(probe.threadHandle), pthread_t>));
    EXPECT_TRUE((std::is_same_v<decltype(probe.stackSize), std::uint32_t>));
    EXPECT_TRUE((std::is_same_v<decltype(probe.running), bool>));
    EXPECT_TRUE((std::is_same_v<decltype(probe.delegatesMutex), std::mutex>));
}

TEST(IThreadTest, ObjectIsNotCopied)
{
    EXPECT_FALSE(std::is_copy_constructible_v<ProbeThread>);
    EXPECT_FALSE(std::is_copy_assignable_v<ProbeThread>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IThread>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IThread::IThreadDelegate>);
    EXPECT_TRUE(std::is_abstract_v<IThread>);
    EXPECT_FALSE(std::is_abstract_v<IThread::IThreadDelegate>);
}

/// The attributes of a thread, as seen by itself.
struct Inside
{
    std::size_t stackBytes = 0;
    int detachState = -1;
    std::string name;
    pthread_t self = 0;
    pthread_t handle = 0;
    bool runs = false;
    bool started = false;
};

Inside LookAround(const ProbeThread& probe)
{
    Inside inside;
    inside.handle = LoadShared(probe.threadHandle);
    inside.runs = probe.IsRunning();
    inside.started = LoadShared(probe.started);
    inside.self = pthread_self();

    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &inside.stackBytes);
    pthread_attr_getdetachstate(&attributes, &inside.detachState);
    pthread_attr_destroy(&attributes);

    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    inside.name = name;
    return inside;
}

/// Starts a worker with the name, and stops it after RunBefore() has read the attributes.
Inside InsideOfThreadNamed(const std::string& name, std::uint32_t stackSize = 524288)
{
    ProbeThread probe;
    probe.SetThreadName(name);
    probe.stackSize = stackSize;
    std::promise<Inside> seen;
    probe.onRunBefore = [&] { seen.set_value(LookAround(probe)); };
    probe.Start();
    return seen.get_future().get();
}

TEST(IThreadTest, ThreadIsDetachedWithAStackOf524288BytesAndTheNameGiven)
{
    if (underThreadSanitizer) {
        GTEST_SKIP() << "the sanitizer makes stacks larger";
    }
    const Inside inside = InsideOfThreadNamed("worker");

    EXPECT_EQ(inside.stackBytes, 524288U);
    EXPECT_EQ(inside.detachState, PTHREAD_CREATE_DETACHED);
    EXPECT_EQ(inside.name, "worker");
}

TEST(IThreadTest, ThreadInheritsTheSignalMaskOfItsCreator)
{
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    ProbeThread probe;
    std::promise<sigset_t> seen;
    probe.onRunBefore = [&seen] {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        seen.set_value(mask);
    };

    probe.Start();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);

    const sigset_t mask = seen.get_future().get();
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 1);
    EXPECT_EQ(sigismember(&mask, SIGUSR2), 0);
}

TEST(IThreadTest, ThreadSeesItsHandleAndThatItRunsBeforeItsFirstHook)
{
    const Inside inside = InsideOfThreadNamed("worker");

    EXPECT_NE(pthread_equal(inside.handle, inside.self), 0);
    EXPECT_TRUE(inside.runs);
    EXPECT_TRUE(inside.started);
}

TEST(IThreadTest, StackSizeFieldIsNotReadAndEveryThreadHas524288Bytes)
{
    if (underThreadSanitizer) {
        GTEST_SKIP() << "the sanitizer makes stacks larger";
    }
    EXPECT_EQ(InsideOfThreadNamed("worker", 65536).stackBytes, 524288U);
}

TEST(IThreadTest, NameOfFifteenCharactersIsSetAndOfSixteenLeavesTheThreadUnnamed)
{
    char own[16] = {};
    pthread_getname_np(pthread_self(), own, sizeof(own));

    EXPECT_EQ(InsideOfThreadNamed("fifteen letters").name, "fifteen letters");
    EXPECT_EQ(InsideOfThreadNamed("sixteen letters!").name, own);
    EXPECT_EQ(InsideOfThreadNamed("").name, own);
}

TEST(IThreadTest, NameTooLongForTheSystemIsLoggedInFull)
{
    LogFile log;
    ProbeThread probe;
    const std::string name(300, 'n');
    probe.SetThreadName(name);

    probe.Start();
    probe.Stop();

    EXPECT_THAT(log.TakeLines(),
                ElementsAre("[#Ithread]Thread (" + name + ") has started the execution",
                            "[#Ithread]Thread (" + name + ") has finished the execution"));
}

TEST(IThreadTest, UnnamedThreadIsLoggedAsNameNotDefined)
{
    LogFile log;
    ProbeThread probe;

    probe.Start();
    probe.Stop();

    EXPECT_THAT(log.TakeLines(),
                ElementsAre("[#Ithread]Thread (name not defined) has started the execution",
                            "[#Ithread]Thread (name not defined) has finished the execution"));
}

TEST(IThreadTest, AbortOfAnUnnamedThreadIsLoggedWithTheDoubledHas)
{
    LogFile log;
    ProbeThread probe;
    probe.onRun = [&] { Nap(1ms); };
    probe.Start();

    probe.Abort();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));

    EXPECT_THAT(log.TakeLines(),
                ElementsAre("[#Ithread]Thread (name not defined) has started the execution",
                            "[WARNING][#Ithread]Thread (name not defined) has has been aborted"));
}

TEST(IThreadTest, FailureToCreateTheThreadIsSilentAndTheStartIsLoggedAllTheSame)
{
    LogFile log;
    ProbeThread probe;
    probe.SetThreadName("worker");

    creationFails = true;
    probe.Start();
    creationFails = false;

    EXPECT_THAT(log.TakeLines(), ElementsAre(startLine));
    EXPECT_TRUE(probe.running && probe.started);
    EXPECT_FALSE(probe.finished || probe.IsRunning());
    EXPECT_EQ(probe.threadHandle, 0U);
}

TEST(IThreadTest, FailureToCreateTheThreadAfterAnAbortLeavesNoHandleOfTheDeadThread)
{
    ProbeThread probe;
    probe.onRun = [&] { Nap(1ms); };
    probe.Start();
    probe.Abort();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));

    creationFails = true;
    probe.Start();
    creationFails = false;

    EXPECT_FALSE(probe.IsRunning());
    probe.Abort();
    probe.Stop();
}

TEST(IThreadTest, WaitUntilFinishedReturnsTrueAfterACancelAndAStartThatFailed)
{
    ProbeThread probe;
    std::atomic<bool> inPass = false;
    std::atomic<bool> mayEnd = false;
    probe.onRun = [&] {
        inPass = true;
        while (!mayEnd) {
            Nap(1ms);
        }
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return inPass.load(); }));
    probe.Cancel();

    creationFails = true;
    probe.Start();
    creationFails = false;
    EXPECT_FALSE(probe.WaitUntilFinished(20ms));
    mayEnd = true;

    EXPECT_TRUE(probe.WaitUntilFinished(patience));
    EXPECT_FALSE(LoadShared(probe.finished));
    EXPECT_FALSE(probe.IsRunning());
}

TEST(IThreadTest, WaitUntilFinishedReturnsTrueAfterAFirstStartThatFailed)
{
    ProbeThread probe;

    creationFails = true;
    probe.Start();
    creationFails = false;

    EXPECT_TRUE(probe.WaitUntilFinished(0ms));
}

TEST(IThreadTest, FailureToCancelIsSilentAndTheObjectCountsAsFinished)
{
    LogFile log;
    ProbeThread probe;
    probe.SetThreadName("worker");
    std::atomic<bool> held = true;
    std::atomic<bool> inPass = false;
    probe.onRun = [&] {
        inPass = true;
        while (held) {
            std::this_thread::yield();
        }
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return inPass.load(); }));
    log.TakeLines();

    cancellingFails = true;
    probe.Abort();
    cancellingFails = false;

    EXPECT_THAT(log.TakeLines(), IsEmpty());
    EXPECT_FALSE(LoadShared(probe.running));
    EXPECT_TRUE(LoadShared(probe.finished));
    held = false;
    ASSERT_TRUE(probe.WaitUntilFinished(patience));
    EXPECT_EQ(LoadShared(probe.threadHandle), 0U);
    EXPECT_TRUE(Eventually([&, seen = std::vector<std::string>()]() mutable {
        for (const std::string& line : log.TakeLines()) {
            seen.push_back(line);
        }
        return seen == std::vector<std::string>{finishLine};
    }));
}

TEST(IThreadTest, AbortOfAThreadThatDoesNotRunCancelsNothing)
{
    ProbeThread probe;
    const int before = cancellings;

    probe.Abort();
    probe.Start();
    probe.Stop();
    probe.Abort();

    EXPECT_EQ(cancellings, before);
}

// ----------------------------------------------------------------------------------- the passes

TEST(IThreadTest, RunBeforePassesAndRunAfterComeInThisOrderOnTheWorker)
{
    ProbeThread probe;
    std::vector<std::string> calls;
    probe.onRunBefore = [&] { calls.emplace_back("before"); };
    probe.onRun = [&] {
        calls.emplace_back("run");
        if (calls.size() == 4) {
            StoreShared(probe.running, false);
        }
    };
    probe.onRunAfter = [&] { calls.emplace_back("after"); };

    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));

    EXPECT_THAT(calls, ElementsAre("before", "run", "run", "run", "after"));
}

TEST(IThreadTest, ThreadPausedBeforeTheStartMakesNoPassUntilItIsResumed)
{
    ProbeThread probe;
    std::atomic<int> passes = 0;
    std::atomic<bool> began = false;
    probe.onRunBefore = [&] { began = true; };
    probe.onRun = [&] {
        ++passes;
        Nap(1ms);
    };
    probe.Pause();
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return began.load(); }));
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(passes, 0);

    probe.Resume();

    EXPECT_TRUE(Eventually([&] { return passes > 0; }));
}

TEST(IThreadTest, ObjectCanBeStartedAgainAfterItsEnd)
{
    ProbeThread probe;
    std::atomic<int> starts = 0;
    probe.onRunBefore = [&] { ++starts; };
    probe.onRun = [&] { StoreShared(probe.running, false); };

    for (int i = 0; i < 3; ++i) {
        probe.Start();
        ASSERT_TRUE(probe.WaitUntilFinished(patience));
        EXPECT_EQ(LoadShared(probe.threadHandle), 0U);
    }

    EXPECT_EQ(starts, 3);
}

TEST(IThreadTest, BenchmarkedPassOfAQuarterSecondLogsFourPassesPerSecondAsItsRuntime)
{
    LogFile log;
    ProbeThread probe;
    probe.SetThreadName("worker");
    probe.benchmark = true;
    probe.onRun = [&] {
        std::this_thread::sleep_for(250ms);
        StoreShared(probe.running, false);
    };

    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));
    const std::vector<std::string> lines = log.TakeLines();

    const std::string head = "[#Ithread]BENCHMARKING: Thread [worker] runtime:[";
    ASSERT_GE(lines.size(), 2U);
    ASSERT_EQ(lines[1].substr(0, head.size()), head);
    ASSERT_EQ(lines[1].back(), ']');
    const double passesPerSecond = std::stod(lines[1].substr(head.size()));
    EXPECT_LE(passesPerSecond, 4.0);
    EXPECT_GT(passesPerSecond, 0.0);
}

TEST(IThreadTest, BenchmarkReadsTheWallClockAroundThePassAndPrintsTheReciprocal)
{
    LogFile log;
    ProbeThread probe;
    probe.SetThreadName("worker");
    probe.benchmark = true;
    timespec now = {1000, 900000000};
    probe.onRunBefore = [&] { wallClock = &now; };
    probe.onRun = [&] {
        now = {1001, 150000000};
        StoreShared(probe.running, false);
    };
    probe.onRunAfter = [] { wallClock = nullptr; };

    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));

    EXPECT_THAT(log.TakeLines(),
                ::testing::Contains("[#Ithread]BENCHMARKING: Thread [worker] runtime:[4]"));
}

TEST(IThreadTest, BenchmarkLineOfAnUnnamedThreadHasEmptyBrackets)
{
    LogFile log;
    ProbeThread probe;
    probe.benchmark = true;
    probe.onRun = [&] { StoreShared(probe.running, false); };

    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));

    EXPECT_THAT(
        log.TakeLines(),
        ::testing::Contains(::testing::StartsWith("[#Ithread]BENCHMARKING: Thread [] runtime:[")));
}

// ----------------------------------------------------------------------------------- the ending

TEST(IThreadTest, StopReturnsOnlyWhenTheThreadHasEnded)
{
    ProbeThread probe;
    std::atomic<bool> after = false;
    std::atomic<bool> inPass = false;
    probe.onRun = [&] {
        inPass = true;
        std::this_thread::sleep_for(250ms);
    };
    probe.onRunAfter = [&] { after = true; };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return inPass.load(); }));

    probe.Stop();

    EXPECT_TRUE(after && probe.finished);
    EXPECT_EQ(probe.threadHandle, 0U);
}

TEST(IThreadTest, StopAfterCancelReturnsAtOnceThoughThePassContinues)
{
    ProbeThread probe;
    std::atomic<bool> held = true;
    std::atomic<bool> inPass = false;
    probe.onRun = [&] {
        inPass = true;
        while (held) {
            std::this_thread::sleep_for(1ms);
        }
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return inPass.load(); }));

    probe.Cancel();
    probe.Stop();

    EXPECT_FALSE(LoadShared(probe.finished));
    EXPECT_FALSE(probe.WaitUntilFinished(0ms));
    held = false;
    EXPECT_TRUE(probe.WaitUntilFinished(patience));
}

TEST(IThreadTest, StopOfAClassWithoutStoppingHookSleepsBetweenItsLooks)
{
    ProbeThread probe;
    probe.onRun = [] { std::this_thread::yield(); };
    probe.Start();

    const auto begin = std::chrono::steady_clock::now();
    probe.Stop();

    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
}

/// Its Stopping() ends the thread, so Stop() finds it finished.
class SelfStoppingThread : public ProbeThread
{
public:
    ~SelfStoppingThread() override { StopBeforeDestruction(); }

    bool looked = false;

protected:
    void Stopping() override
    {
        StoreShared(running, false);
        looked = Eventually([this] { return LoadShared(finished); });
    }
};

TEST(IThreadTest, StopOfAClassWithAStoppingHookLooksOnceBeforeItsFirstSleep)
{
    // Many times, because one stop may be slow for other reasons: not each sleeps 100 ms.
    constexpr int stops = 100;
    SelfStoppingThread probe;
    probe.onRun = [] { std::this_thread::yield(); };

    int withoutSleep = 0;
    for (int i = 0; i < stops; ++i) {
        probe.Start();
        const auto begin = std::chrono::steady_clock::now();
        probe.Stop();
        withoutSleep += std::chrono::steady_clock::now() - begin < 100ms;
        ASSERT_TRUE(probe.looked);
    }

    EXPECT_GT(withoutSleep, 0);
}

/// Ends the thread in Stopping() too, but calls the base version: counts as not overridden.
class HooklessThread : public SelfStoppingThread
{
public:
    ~HooklessThread() override { StopBeforeDestruction(); }

protected:
    void Stopping() override
    {
        SelfStoppingThread::Stopping();
        IThread::Stopping();  // NOLINT(bugprone-parent-virtual-call): the first one, on purpose
    }
};

TEST(IThreadTest, StopOfAClassWithoutStoppingHookSleepsOnceThoughTheThreadHasEnded)
{
    HooklessThread probe;
    probe.onRun = [] { std::this_thread::yield(); };
    probe.Start();

    const auto begin = std::chrono::steady_clock::now();
    probe.Stop();

    EXPECT_TRUE(probe.looked);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
}

TEST(IThreadTest, NestedStopInAStoppingHookDoesNotHideTheHook)
{
    class Outer : public SelfStoppingThread
    {
    public:
        ~Outer() override { StopBeforeDestruction(); }
        ProbeThread inner;

    protected:
        void Stopping() override
        {
            inner.Stop();
            SelfStoppingThread::Stopping();
        }
    };
    Outer outer;
    outer.inner.Start();
    outer.Start();

    outer.Stop();

    EXPECT_TRUE(outer.looked);
    EXPECT_TRUE(LoadShared(outer.inner.finished));
}

TEST(IThreadTest, HandOverThatComesLateClearsTheHandle)
{
    ProbeThread probe;
    probe.threadHandle = pthread_self();
    std::thread lateCreator([&] {
        std::this_thread::sleep_for(50ms);
        StoreShared(probe.started, true);
    });

    EXPECT_EQ(ProbeThread::RunPosixThread(static_cast<IThread*>(&probe)), nullptr);
    lateCreator.join();

    EXPECT_EQ(probe.threadHandle, 0U);
    EXPECT_TRUE(probe.finished);
}

TEST(IThreadTest, FinishedIsSetAndTheHandleClearedBeforeTheFinishLineIsWritten)
{
    LogFile log;
    auto probe = std::make_unique<ProbeThread>();
    probe->SetThreadName("worker");
    std::atomic<bool> held = true;
    probe->onRun = [&] {
        while (held) {
            std::this_thread::yield();
        }
        StoreShared(probe->running, false);
    };
    probe->Start();
    log.TakeLines();

    // An open line holds the logger's lock, so the finish line cannot be written before its end.
    Tolvex::Ilog::Logger& logger = *Tolvex::Ilog::Logger::GetInstance();
    logger.WriteHeader(Tolvex::Ilog::LogType::Info);
    held = false;
    ASSERT_TRUE(probe->WaitUntilFinished(patience));
    EXPECT_EQ(probe->threadHandle, 0U);
    probe.reset();
    logger << "first" << std::endl;

    EXPECT_TRUE(Eventually([&, seen = std::vector<std::string>()]() mutable {
        for (const std::string& line : log.TakeLines()) {
            seen.push_back(line);
        }
        return seen == std::vector<std::string>{"first", finishLine};
    }));
}

TEST(IThreadTest, ThreadThatEndsItselfByPthreadExitCountsAsFinished)
{
    ProbeThread probe;
    probe.onRun = [] { pthread_exit(nullptr); };

    probe.Start();

    EXPECT_TRUE(probe.WaitUntilFinished(patience));
    EXPECT_EQ(LoadShared(probe.threadHandle), 0U);
    probe.Abort();
    probe.Stop();
}

TEST(IThreadTest, WaitUntilFinishedOfANeverStartedObjectReturnsFalseWhenTheTimeIsOver)
{
    const ProbeThread probe;
    const auto begin = std::chrono::steady_clock::now();

    EXPECT_FALSE(probe.WaitUntilFinished(30ms));

    EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
    EXPECT_FALSE(probe.WaitUntilFinished(-1ms));
    EXPECT_FALSE(probe.WaitUntilFinished(std::chrono::milliseconds::min()));
}

TEST(IThreadTest, WaitUntilFinishedTakesTheLongestLimit)
{
    ProbeThread probe;
    probe.onRun = [&] { StoreShared(probe.running, false); };
    probe.Start();

    EXPECT_TRUE(probe.WaitUntilFinished(std::chrono::milliseconds::max()));
}

TEST(IThreadTest, LifecycleOperationsTakeNoLockOfTheDelegates)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    const std::lock_guard<std::mutex> lock(probe.delegatesMutex);

    probe.Start();
    probe.Pause();
    probe.Resume();
    probe.Stop();
    EXPECT_TRUE(LoadShared(probe.finished));

    probe.Start();
    probe.Cancel();
    EXPECT_TRUE(probe.WaitUntilFinished(patience));

    probe.Start();
    probe.Abort();
    EXPECT_TRUE(probe.WaitUntilFinished(patience));
}

// ------------------------------------------------------------------------- several threads at once

TEST(IThreadTest, StartFromSeveralThreadsAtOnceMakesOneThread)
{
    for (int round = 0; round < 50; ++round) {
        ProbeThread probe;
        std::atomic<int> threads = 0;
        std::atomic<bool> go = false;
        probe.onRunBefore = [&] { ++threads; };
        probe.onRun = [&] { Nap(1ms); };

        constexpr int count = 4;
        std::vector<std::thread> starters;
        starters.reserve(count);
        for (int i = 0; i < count; ++i) {
            starters.emplace_back([&] {
                while (!go) {
                }
                probe.Start();
            });
        }
        go = true;
        for (std::thread& starter : starters) {
            starter.join();
        }
        ASSERT_TRUE(Eventually([&] { return threads > 0; }));
        probe.Cancel();
        ASSERT_TRUE(probe.WaitUntilFinished(patience));

        ASSERT_EQ(threads, 1);
    }
}

TEST(IThreadTest, StopFromSeveralThreadsAtOnceReturnsInEach)
{
    ProbeThread probe;
    probe.onRun = [&] { Nap(1ms); };
    probe.Start();

    constexpr int count = 4;
    std::vector<std::thread> stoppers;
    stoppers.reserve(count);
    for (int i = 0; i < count; ++i) {
        stoppers.emplace_back([&] { probe.Stop(); });
    }
    for (std::thread& stopper : stoppers) {
        stopper.join();
    }

    EXPECT_TRUE(probe.WaitUntilFinished(patience));
    EXPECT_EQ(LoadShared(probe.threadHandle), 0U);
}

TEST(IThreadTest, StopReturnsThoughAnotherThreadStartsTheObjectAgainMeanwhile)
{
    ProbeThread probe;
    probe.onRun = [] { Nap(1ms); };
    probe.Start();
    std::future<void> stop = std::async(std::launch::async, [&] { probe.Stop(); });
    ASSERT_TRUE(probe.WaitUntilFinished(patience));
    probe.Start();  // mostly before Stop() looks again

    EXPECT_EQ(stop.wait_for(patience), std::future_status::ready);
    probe.Stop();
}

TEST(IThreadTest, StopCancelAndAbortAtOnceEndTheThreadOnce)
{
    if (Tolvex::Support::underThreadSanitizer) {
        GTEST_SKIP()
            << "the sanitizer does not see the locks of a thread that is cancelled in a sleep";
    }
    for (int round = 0; round < 20; ++round) {
        ProbeThread probe;
        std::atomic<bool> go = false;
        probe.onRun = [&] { Nap(1ms); };
        probe.Start();
        const auto once = [&](auto operation) {
            return std::thread([&probe, &go, operation] {
                while (!go) {
                }
                (probe.*operation)();
            });
        };

        std::thread others[] = {once(&IThread::Stop), once(&IThread::Cancel), once(&IThread::Abort),
                                once(&IThread::Pause)};
        go = true;
        for (std::thread& other : others) {
            other.join();
        }

        ASSERT_TRUE(probe.WaitUntilFinished(patience));
        ASSERT_FALSE(probe.IsRunning());
    }
}

TEST(IThreadTest, RestartDuringTheLastPassOfACancelledThreadNeverRunsTwoPassesAtOnce)
{
    ProbeThread probe;
    std::atomic<int> inPass = 0;
    std::atomic<int> starts = 0;
    std::atomic<bool> overlap = false;
    probe.onRunBefore = [&] { ++starts; };
    probe.onRun = [&] {
        overlap = overlap || ++inPass > 1;
        probe.ThreadSleep(5ms, 1ms);
        --inPass;
    };
    probe.Start();

    for (int i = 0; i < 100; ++i) {
        probe.Cancel();
        probe.Start();
    }
    probe.Stop();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));  // the older threads too

    EXPECT_FALSE(overlap);
    EXPECT_EQ(starts, 101);
}

TEST(IThreadTest, AbortBeforeTheThreadHasBegunLeavesNoneOfItsHooksCalled)
{
    for (int round = 0; round < 100; ++round) {
        ProbeThread probe;
        std::atomic<int> afters = 0;
        probe.onRun = [&] { Nap(1ms); };
        probe.onRunAfter = [&] { ++afters; };

        probe.Start();
        probe.Abort();

        ASSERT_TRUE(probe.WaitUntilFinished(patience));
        ASSERT_EQ(afters, 0);
    }
}

TEST(IThreadTest, RestartRightAfterAnAbortRunsTheNewThreadAlone)
{
    ProbeThread probe;
    std::atomic<int> inPass = 0;
    std::atomic<bool> overlap = false;
    struct Presence
    {
        explicit Presence(std::atomic<int>& counted) : count(counted) { ++count; }
        ~Presence() { --count; }
        std::atomic<int>& count;
    };
    probe.onRun = [&] {
        const Presence presence(inPass);
        overlap = overlap || inPass > 1;
        Nap(1ms);
    };

    for (int i = 0; i < 100; ++i) {
        probe.Start();
        probe.Abort();
    }
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return inPass > 0; }));
    probe.Stop();

    EXPECT_FALSE(overlap);
    EXPECT_FALSE(probe.IsRunning());
}

// ------------------------------------------------------------------------------------- Stopped<T>

/// Does not stop itself, and has a member whose use after its destruction is noticed.
class ForgetfulThread : public IThread
{
public:
    explicit ForgetfulThread(std::shared_ptr<std::atomic<int>> counted) : passes(std::move(counted))
    {
    }

    ~ForgetfulThread() override { alive = false; }

protected:
    void Run() override
    {
        EXPECT_TRUE(alive);
        ++*passes;
        Nap(1ms);
    }

private:
    std::shared_ptr<std::atomic<int>> passes;
    std::atomic<bool> alive = true;
};

TEST(StoppedTest, ThreadHasEndedBeforeTheWorkersOwnDestructorBegins)
{
    const auto passes = std::make_shared<std::atomic<int>>(0);
    {
        Stopped<ForgetfulThread> worker(passes);
        worker.Start();
        ASSERT_TRUE(Eventually([&] { return *passes > 0; }));
    }
    const int atEnd = *passes;

    std::this_thread::sleep_for(20ms);

    EXPECT_EQ(*passes, atEnd);
    EXPECT_EQ(passes.use_count(), 1);
}

TEST(StoppedTest, DestructorWaitsForAThreadThatWasCancelled)
{
    const auto passes = std::make_shared<std::atomic<int>>(0);
    {
        Stopped<ForgetfulThread> worker(passes);
        worker.Start();
        ASSERT_TRUE(Eventually([&] { return *passes > 0; }));
        worker.Cancel();
    }
    const int atEnd = *passes;

    std::this_thread::sleep_for(20ms);

    EXPECT_EQ(*passes, atEnd);
}

TEST(StoppedTest, DestructorWaitsForAThreadThatWasAborted)
{
    for (int round = 0; round < 50; ++round) {
        const auto passes = std::make_shared<std::atomic<int>>(0);
        Stopped<ForgetfulThread> worker(passes);
        worker.Start();
        worker.Abort();
    }
}

TEST(StoppedTest, ObjectThatWasNeverStartedIsDestroyedWithoutWaiting)
{
    const auto passes = std::make_shared<std::atomic<int>>(0);
    {
        const Stopped<ForgetfulThread> worker(passes);
    }

    EXPECT_EQ(*passes, 0);
    EXPECT_EQ(passes.use_count(), 1);
}

TEST(StoppedTest, IsFinalAndDerivesFromTheWorker)
{
    EXPECT_TRUE(std::is_final_v<Stopped<ProbeThread>>);
    EXPECT_TRUE((std::is_base_of_v<ProbeThread, Stopped<ProbeThread>>));
}

}  // namespace
