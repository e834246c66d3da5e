#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <pthread.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/ISemaphore.h"
#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Interfaces/Stopped.h"
#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/Tick.h"
#include "Tolvex/Util/TimeMonitor.h"

#include "tests/Support/CancellableStack.h"
#include "tests/Support/LogFile.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Tolvex::Base::LoadShared;
using Tolvex::Base::StoreShared;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Interfaces::ISemaphore;
using Tolvex::Interfaces::IThread;
using Tolvex::Interfaces::Stopped;
using Tolvex::Support::CancellableStack;
using Tolvex::Support::Eventually;
using Tolvex::Support::HasThread;
using Tolvex::Support::LogFile;
using Tolvex::Support::patience;
using Tolvex::Support::ProbeThread;
using Tolvex::Support::underThreadSanitizer;

/// Counts how often its scope was left, in any way.
class Scope
{
public:
    explicit Scope(std::atomic<int>& counted) : left(counted) {}
    ~Scope() { ++left; }

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    std::atomic<int>& left;
};

// ----------------------------------------------------------- an abort in each call that can block

/// A call during which the worker is aborted.
struct BlockingCall
{
    const char* name;
    std::function<void(ProbeThread&)> call;
};

void PrintTo(const BlockingCall& blocking, std::ostream* stream)
{
    *stream << blocking.name;
}

/// Blocks in each notification.
class SleepingDelegate : public IThread::IThreadDelegate
{
public:
    void Invoke(IThread* thread, void* /*data*/) override { thread->ThreadSleep(1h, 1h); }
};

/// Ends only after it is released, even if Stop() is called.
class StubbornThread : public IThread
{
public:
    ~StubbornThread() override
    {
        released = true;
        StopBeforeDestruction();
    }

protected:
    void Run() override
    {
        while (!released) {
            std::this_thread::sleep_for(1ms);
        }
    }

private:
    std::atomic<bool> released = false;
};

const std::vector<BlockingCall> blockingCalls = {
    {"ThreadSleepInOnePiece", [](ProbeThread& probe) { probe.ThreadSleep(1h, 2h); }},
    {"ThreadSleepInSteps", [](ProbeThread& probe) { probe.ThreadSleep(1h, 1ms); }},
    {"ThreadSleepWithoutPause",
     [](ProbeThread& probe) {
         probe.ThreadSleep(1ms, 0ms);
         probe.ThreadSleep(1h, 1h);
     }},
    {"Pause", [](ProbeThread& probe) { probe.Pause(); }},
    {"Delegate",
     [](ProbeThread& probe) {
         static SleepingDelegate delegate;
         probe.AddCallback(&delegate);
         probe.DoCallback(nullptr);
     }},
    {"BenchmarkedPass",
     [](ProbeThread& probe) {
         StoreShared(probe.benchmark, true);
         if (probe.passes > 1) {
             probe.ThreadSleep(1h, 1h);
         }
     }},
    {"LogLines",
     [](ProbeThread& /*probe*/) {
         LogLine(LogType::Info) << "a line";
         pthread_testcancel();
     }},
    {"OpenLogLine",
     [](ProbeThread& probe) {
         Logger::GetInstance()->WriteHeader(LogType::Info);
         *Logger::GetInstance() << "begun";
         probe.ThreadSleep(1h, 1h);
     }},
    {"ShownElapsedTime",
     [](ProbeThread& /*probe*/) {
         Tolvex::Util::TimeMonitor(true).ShowElapsedTime("aborted");
         pthread_testcancel();
     }},
    {"SemaphoreWait",
     [](ProbeThread& /*probe*/) {
         ISemaphore never(0);
         never.Wait();
     }},
    {"StopOfAnotherThread",
     [](ProbeThread& /*probe*/) {
         StubbornThread other;
         other.Start();
         other.Stop();
     }},
    {"DestructionOfAnotherThread",
     [](ProbeThread& /*probe*/) {
         {
             StubbornThread other;
             other.Start();
         }
         pthread_testcancel();
     }},
    {"StartAndCancelOfAnotherThread",
     [](ProbeThread& /*probe*/) {
         Stopped<StubbornThread> other;
         other.SetThreadName("other");
         other.Start();
         other.Abort();
         pthread_testcancel();
     }},
    {"WaitUntilFinished",
     [](ProbeThread& /*probe*/) {
         const ProbeThread other;
         other.WaitUntilFinished(1h);
     }},
    {"CreationOfTheTick",
     [](ProbeThread& probe) {
         Tolvex::Util::Tick::GetInstance();
         probe.ThreadSleep(1h, 1h);
     }},
    {"FileAndConsoleLoggersOpenedAndClosed",
     [](ProbeThread& /*probe*/) {
         Logger::GetInstance()->EnableConsole();
         Logger::GetInstance()->CloseConsole();
         pthread_testcancel();
     }},
};

class IThreadAbortTest : public ::testing::TestWithParam<BlockingCall>
{
};

TEST_P(IThreadAbortTest, AbortInTheCallEndsTheThreadAndLeavesTheLoggerFree)
{
    if (underThreadSanitizer) {
        GTEST_SKIP() << "the thread is cancelled in a sleep";
    }
    // Early and late moments of the call, as far as a busy machine allows.
    for (const auto delay : {0us, 300us, 20000us}) {
        LogFile log;
        ProbeThread probe;
        probe.SetThreadName("worker");
        std::atomic<int> entered = 0;
        std::atomic<int> left = 0;
        // An open line would keep Start() from writing its own.
        std::atomic<bool> startLogged = false;
        probe.onRunBefore = [&] {
            while (!startLogged) {
                std::this_thread::yield();
            }
        };
        probe.onRun = [&] {
            ++entered;
            const Scope scope(left);
            const CancellableStack stack;
            ++probe.passes;
            GetParam().call(probe);
        };
        probe.Start();
        startLogged = true;
        ASSERT_TRUE(Eventually([&] { return entered > 0; }));
        std::this_thread::sleep_for(delay);

        probe.Abort();
        ASSERT_TRUE(probe.WaitUntilFinished(patience));

        EXPECT_EQ(entered, left);
        EXPECT_FALSE(LoadShared(probe.running));
        EXPECT_THAT(log.TakeLines(),
                    ::testing::Contains("[WARNING][#Ithread]Thread (worker) has been aborted"));
        EXPECT_TRUE(Logger::GetInstance()->IsFileEnabled());
    }
}

INSTANTIATE_TEST_SUITE_P(All, IThreadAbortTest, ::testing::ValuesIn(blockingCalls),
                         [](const auto& row) { return row.param.name; });

TEST(IThreadHookAbortTest, AbortInRunBeforeEndsTheThread)
{
    if (underThreadSanitizer) {
        GTEST_SKIP() << "the thread is cancelled in a sleep";
    }
    ProbeThread probe;
    std::atomic<bool> entered = false;
    probe.onRunBefore = [&] {
        entered = true;
        probe.ThreadSleep(1h, 1h);
    };
    probe.onRun = [] { ADD_FAILURE() << "a pass after the abort"; };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));

    probe.Abort();

    EXPECT_TRUE(probe.WaitUntilFinished(patience));
}

TEST(IThreadHookAbortTest, CancellationInRunAfterAndInTheStopNotificationEndsTheThread)
{
    if (underThreadSanitizer) {
        GTEST_SKIP() << "the thread is cancelled in a sleep";
    }
    // Abort() acts only on running threads; a direct cancellation ends the thread there as well.
    class Blocking : public IThread::IThreadDelegate
    {
    public:
        std::atomic<bool> entered = false;
        void InvokeStop(IThread* thread) override
        {
            const CancellableStack stack;
            entered = true;
            thread->ThreadSleep(1h, 1h);
        }
    };
    for (const bool inRunAfter : {true, false}) {
        Blocking delegate;
        ProbeThread probe;
        std::atomic<pthread_t> handle = 0;
        std::atomic<bool> entered = false;
        probe.AddCallback(&delegate);
        probe.onRunBefore = [&] { handle = pthread_self(); };
        probe.onRun = [&] { probe.ThreadSleep(1ms, 1s); };
        probe.onRunAfter = [&] {
            if (inRunAfter) {
                entered = true;
                probe.ThreadSleep(1h, 1h);
            }
        };
        probe.Start();
        probe.Cancel();
        ASSERT_TRUE(Eventually([&] { return entered || delegate.entered; }));

        pthread_cancel(handle);

        ASSERT_TRUE(probe.WaitUntilFinished(patience));
        EXPECT_EQ(LoadShared(probe.threadHandle), 0U);
    }
}

TEST(IThreadHookAbortTest, AbortOfAThreadWithoutCancellationPointsEndsItAfterItsPass)
{
    ProbeThread probe;
    std::atomic<bool> held = true;
    std::atomic<int> passes = 0;
    std::atomic<int> afters = 0;
    probe.onRun = [&] {
        ++passes;
        while (held) {
            std::this_thread::yield();
        }
    };
    probe.onRunAfter = [&] { ++afters; };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return passes == 1; }));

    probe.Abort();
    EXPECT_TRUE(LoadShared(probe.finished));
    EXPECT_NE(LoadShared(probe.threadHandle), 0U);
    EXPECT_FALSE(probe.WaitUntilFinished(20ms));
    held = false;

    EXPECT_TRUE(probe.WaitUntilFinished(patience));
    EXPECT_EQ(passes, 1);
    EXPECT_EQ(afters, 0);
}

TEST(IThreadHookAbortTest, AbortOfAThreadThatCannotBeCancelledEndsItAfterItsPassWithoutALogLine)
{
    LogFile log;
    ProbeThread probe;
    probe.SetThreadName("stubborn");
    std::atomic<bool> held = true;
    std::atomic<int> passes = 0;
    probe.onRun = [&] {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        ++passes;
        while (held) {
            std::this_thread::yield();
        }
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return passes == 1; }));

    probe.Abort();
    held = false;

    EXPECT_TRUE(probe.WaitUntilFinished(patience));
    EXPECT_TRUE(Eventually([] { return !HasThread("stubborn"); }));
    EXPECT_THAT(log.TakeLines(),
                ElementsAre("[#Ithread]Thread (stubborn) has started the execution",
                            "[WARNING][#Ithread]Thread (stubborn) has been aborted"));
    EXPECT_EQ(passes, 1);
}

TEST(IThreadHookAbortTest, WorkerThatAbortsItselfEnds)
{
    if (underThreadSanitizer) {
        GTEST_SKIP() << "the thread is cancelled in a sleep";
    }
    LogFile log;
    ProbeThread probe;
    probe.onRun = [&] {
        probe.Abort();
        probe.ThreadSleep(1h, 1h);
    };

    probe.Start();

    EXPECT_TRUE(Eventually([&] { return LoadShared(probe.finished); }));
    EXPECT_TRUE(probe.WaitUntilFinished(patience));
    EXPECT_THAT(
        log.TakeLines(),
        ::testing::Contains("[WARNING][#Ithread]Thread (name not defined) has has been aborted"));
}

// --------------------------------------------------------------------------------- at any moment

constexpr int aborts = Tolvex::Support::threadsAreSlow ? 400 : 2000;

TEST(IThreadManyAbortsTest, WorkersThatLogInALoopLeaveTheLoggerFreeAndNothingBehind)
{
    LogFile log;
    std::mt19937 random(20);
    std::uniform_int_distribution<int> microseconds(0, 400);
    std::atomic<int> scopes = 0;
    std::atomic<int> left = 0;

    for (int i = 0; i < aborts; ++i) {
        ProbeThread probe;
        probe.onRun = [&, inSteps = i % 2 == 0] {
            ++scopes;
            const Scope scope(left);
            const CancellableStack stack;
            if (inSteps) {
                Logger::GetInstance()->WriteHeader(LogType::Warning);
                *Logger::GetInstance() << "number " << 7 << " of ";
                pthread_testcancel();
                *Logger::GetInstance() << 1.5 << std::endl;
            } else {
                LogLine(LogType::Notice) << "number " << 7L << std::string(300, 'x');
                pthread_testcancel();
            }
        };
        probe.Start();
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
        probe.Abort();
        ASSERT_TRUE(probe.WaitUntilFinished(patience));
    }

    EXPECT_EQ(scopes, left);
    log.TakeLines();
    LogLine(LogType::Info) << "after all of them";
    EXPECT_THAT(log.TakeLines(), ::testing::ElementsAre("after all of them"));
}

}  // namespace
