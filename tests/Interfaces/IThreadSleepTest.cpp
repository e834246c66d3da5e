#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <limits>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IThread.h"

#include "tests/Support/LogFile.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"
#include "tests/Support/RealFunction.h"

namespace {

using std::chrono::milliseconds;
using Tolvex::Support::RealFunction;

/// Replaces the sleeps of one thread while it exists: records them and returns at once.
class SleepRecorder
{
public:
    SleepRecorder() { current = this; }
    ~SleepRecorder() { current = nullptr; }

    SleepRecorder(const SleepRecorder&) = delete;
    SleepRecorder& operator=(const SleepRecorder&) = delete;

    std::vector<timespec> requests;
    std::vector<timespec>
        interruptions;  ///< remaining times of the first sleeps, which signals interrupt
    std::function<void()> afterEach = [] {};

    std::vector<milliseconds> Durations() const
    {
        std::vector<milliseconds> durations;
        for (const timespec& request : requests) {
            durations.emplace_back(std::chrono::seconds(request.tv_sec) +
                                   milliseconds(request.tv_nsec / 1000000));
        }
        return durations;
    }

    static thread_local SleepRecorder* current;
};

thread_local SleepRecorder* SleepRecorder::current = nullptr;

}  // namespace

extern "C" int nanosleep(const timespec* request, timespec* remaining)
{
    if (SleepRecorder* const recorder = SleepRecorder::current; recorder != nullptr) {
        recorder->requests.push_back(*request);
        recorder->afterEach();
        if (recorder->requests.size() <= recorder->interruptions.size()) {
            *remaining = recorder->interruptions[recorder->requests.size() - 1];
            errno = EINTR;
            return -1;
        }
        return 0;
    }
    static auto* const real = RealFunction<int(const timespec*, timespec*)>("nanosleep");
    return real(request, remaining);
}

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Tolvex::Base::StoreShared;
using Tolvex::Support::Eventually;
using Tolvex::Support::LogFile;
using Tolvex::Support::patience;
using Tolvex::Support::ProbeThread;
using Tolvex::Support::Sleeps;

// ------------------------------------------------------------------------------------ the table

struct SleepCase
{
    const char* name;
    bool runs;
    milliseconds total;
    milliseconds step;
    std::vector<milliseconds> sleeps;
};

void PrintTo(const SleepCase& sleepCase, std::ostream* stream)
{
    *stream << sleepCase.name;
}

std::vector<milliseconds> Times(std::size_t count, milliseconds step)
{
    return std::vector<milliseconds>(count, step);
}

class ThreadSleepTest : public ::testing::TestWithParam<SleepCase>
{
};

TEST_P(ThreadSleepTest, SleepsExactlyTheseSteps)
{
    const SleepCase& sleepCase = GetParam();
    ProbeThread probe;
    if (sleepCase.runs) {
        probe.PretendToRun();
    }

    std::vector<milliseconds> sleeps;
    {
        const SleepRecorder recorder;
        probe.ThreadSleep(sleepCase.total, sleepCase.step);
        sleeps = recorder.Durations();
    }

    EXPECT_EQ(sleeps, sleepCase.sleeps);
    probe.EndPretence();
}

constexpr milliseconds longest = milliseconds::max();
constexpr milliseconds lowest = milliseconds::min();

const std::vector<SleepCase> sleepCases = {
    {"StepDoesNotDivideTheTotal", true, 1000ms, 300ms, Times(3, 300ms)},
    {"StepDividesTheTotal", true, 1000ms, 100ms, Times(10, 100ms)},
    {"StepIsMoreThanHalfTheTotal", true, 1000ms, 501ms, Times(1, 501ms)},
    {"StepIsHalfTheTotal", true, 1000ms, 500ms, Times(2, 500ms)},
    {"StepIsOneBelowTheTotal", true, 1000ms, 999ms, Times(1, 999ms)},
    {"StepIsTheTotal", true, 1000ms, 1000ms, Times(1, 1000ms)},
    {"StepIsAboveTheTotal", true, 100ms, 1000ms, Times(1, 100ms)},
    {"StepOfOneMillisecond", true, 7ms, 1ms, Times(7, 1ms)},
    {"TotalIsZero", true, 0ms, 0ms, {}},
    {"TotalIsZeroAndStepIsNot", true, 0ms, 10ms, {}},
    {"TotalIsNegative", true, -5ms, 10ms, {}},
    {"TotalIsNegativeAndEqualsTheStep", true, -5ms, -5ms, {}},
    {"TotalIsTheLowest", true, lowest, 10ms, {}},
    {"TotalIsTheLowestAndEqualsTheStep", true, lowest, lowest, {}},
    {"NotRunningSleepsInOnePiece", false, 1000ms, 300ms, Times(1, 1000ms)},
    {"NotRunningAndStepZero", false, 1000ms, 0ms, Times(1, 1000ms)},
    {"NotRunningAndStepNegative", false, 1500ms, -1ms, Times(1, 1500ms)},
    {"NotRunningAndTotalZero", false, 0ms, 10ms, {}},
    {"NotRunningAndTotalNegative", false, -1ms, lowest, {}},
};

INSTANTIATE_TEST_SUITE_P(All, ThreadSleepTest, ::testing::ValuesIn(sleepCases),
                         [](const auto& row) { return row.param.name; });

// ------------------------------------------------------------------------------- single sleeps

TEST(IThreadSleepTest, MillisecondsAreSplitIntoSecondsAndNanoseconds)
{
    ProbeThread probe;

    const SleepRecorder recorder;
    probe.ThreadSleep(61234ms, 61234ms);

    ASSERT_THAT(recorder.requests, SizeIs(1));
    EXPECT_EQ(recorder.requests[0].tv_sec, 61);
    EXPECT_EQ(recorder.requests[0].tv_nsec, 234000000);
}

TEST(IThreadSleepTest, InterruptedSleepContinuesWithTheRemainingTime)
{
    ProbeThread probe;
    probe.PretendToRun();

    SleepRecorder recorder;
    recorder.interruptions = {{0, 70000000}, {0, 30000000}};
    probe.ThreadSleep(250ms, 100ms);

    EXPECT_EQ(recorder.Durations(), (std::vector{100ms, 70ms, 30ms, 100ms}));
    probe.EndPretence();
}

milliseconds Sum(const std::vector<milliseconds>& durations)
{
    milliseconds sum = 0ms;
    for (const milliseconds duration : durations) {
        sum += duration;
    }
    return sum;
}

TEST(IThreadSleepTest, HugeTotalIsSleptInFull)
{
    ProbeThread probe;

    const SleepRecorder recorder;
    probe.ThreadSleep(std::chrono::hours(24 * 365 * 200), 0ms);

    EXPECT_EQ(recorder.requests.size() == 1, sizeof(std::time_t) == 8);
    EXPECT_EQ(Sum(recorder.Durations()), std::chrono::hours(24 * 365 * 200));
}

TEST(IThreadSleepTest, StepThatWouldPassTheLargestTotalEndsTheSleep)
{
    ProbeThread probe;
    probe.PretendToRun();
    // Half and one more: a second step would overflow the type.
    constexpr milliseconds step = longest / 2 + 1ms;

    SleepRecorder recorder;
    recorder.afterEach = [&] {
        recorder.requests.resize(std::min<std::size_t>(recorder.requests.size(), 1));
    };
    probe.ThreadSleep(longest, step);

    EXPECT_THAT(recorder.requests, SizeIs(1));
    probe.EndPretence();
}

TEST(IThreadSleepTest, StepBelowTheLargestTotalIsTakenAsOftenAsItFits)
{
    ProbeThread probe;
    probe.PretendToRun();
    constexpr milliseconds step(2000000000000);  // 63 years: one piece on every platform

    SleepRecorder recorder;
    probe.ThreadSleep(step * 3 + 1ms, step);

    EXPECT_EQ(recorder.Durations(), Times(3, step));
    probe.EndPretence();
}

// --------------------------------------------------------------------------------- interruptions

clockid_t OwnProcessorClock()
{
    clockid_t clock = 0;
    pthread_getcpuclockid(pthread_self(), &clock);
    return clock;
}

std::chrono::nanoseconds ProcessorTime(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::chrono::nanoseconds OwnProcessorTime()
{
    return ProcessorTime(OwnProcessorClock());
}

enum class Interruption
{
    NoHandle,
    NotRunning,
    Finished,
    Destroying
};

class ThreadSleepInterruptionTest : public ::testing::TestWithParam<Interruption>
{
protected:
    static void Interrupt(ProbeThread& probe)
    {
        switch (GetParam()) {
            case Interruption::NoHandle:
                return StoreShared(probe.threadHandle, 0);
            case Interruption::NotRunning:
                return StoreShared(probe.running, false);
            case Interruption::Finished:
                return StoreShared(probe.finished, true);
            case Interruption::Destroying:
                return StoreShared(probe.destroying, true);
        }
    }
};

TEST_P(ThreadSleepInterruptionTest, EndsTheSleepAfterTheStepInWhichItCame)
{
    ProbeThread probe;
    probe.PretendToRun();

    SleepRecorder recorder;
    recorder.afterEach = [&] {
        if (recorder.requests.size() == 3) {
            Interrupt(probe);
        }
    };
    probe.ThreadSleep(5000ms, 100ms);

    EXPECT_EQ(recorder.Durations(), Times(3, 100ms));
    probe.EndPretence();
}

TEST_P(ThreadSleepInterruptionTest, EndsTheSpinThatAStepOfZeroIs)
{
    for (const milliseconds step : {0ms, -1ms, lowest}) {
        ProbeThread probe;
        probe.PretendToRun();
        std::vector<timespec> sleeps;
        {
            const SleepRecorder recorder;
            const auto begin = OwnProcessorTime();
            // Only the spin takes this thread so long.
            std::thread interrupter([&, clock = OwnProcessorClock()] {
                Eventually([&] { return ProcessorTime(clock) - begin > 50ms; });
                Interrupt(probe);
            });
            probe.ThreadSleep(1000ms, step);
            sleeps = recorder.requests;
            EXPECT_GT(OwnProcessorTime() - begin, 50ms);
            interrupter.join();
        }

        // Far beyond the total, counted in steps; but nothing was slept.
        EXPECT_THAT(sleeps, IsEmpty());
        probe.EndPretence();
    }
}

INSTANTIATE_TEST_SUITE_P(All, ThreadSleepInterruptionTest,
                         ::testing::Values(Interruption::NoHandle, Interruption::NotRunning,
                                           Interruption::Finished, Interruption::Destroying));

TEST(IThreadSleepTest, DestroyedObjectDoesNotSleepAtAll)
{
    ProbeThread probe;
    StoreShared(probe.destroying, true);

    const SleepRecorder recorder;
    probe.ThreadSleep(1000ms, 100ms);
    probe.ThreadSleep(1000ms, 1000ms);

    EXPECT_THAT(recorder.requests, IsEmpty());
}

TEST(IThreadSleepTest, PlainSleepIsNotEndedByAStop)
{
    ProbeThread probe;
    probe.PretendToRun();

    SleepRecorder recorder;
    recorder.afterEach = [&] { StoreShared(probe.running, false); };
    probe.ThreadSleep(100ms, 1000ms);

    EXPECT_EQ(recorder.Durations(), Times(1, 100ms));
    probe.EndPretence();
}

TEST(IThreadSleepTest, StopEndsALongSteppedSleepOfTheWorker)
{
    ProbeThread probe;
    std::atomic<pid_t> worker = 0;
    probe.onRun = [&] {
        worker = gettid();
        probe.ThreadSleep(1h, 10ms);
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return worker != 0 && Sleeps(worker); }));

    probe.Stop();

    EXPECT_TRUE(probe.finished);
}

TEST(IThreadSleepTest, CancelledThreadLeavesItsSleepThoughTheObjectWasStartedAgain)
{
    ProbeThread probe;
    std::atomic<int> passes = 0;
    std::atomic<pid_t> worker = 0;
    probe.onRun = [&] {
        if (++passes == 1) {
            worker = gettid();
            probe.ThreadSleep(1h, 1ms);
        } else {
            probe.ThreadSleep(1ms, 1s);
        }
    };
    probe.Start();
    ASSERT_TRUE(Eventually([&] { return worker != 0 && Sleeps(worker); }));

    probe.Cancel();
    probe.Start();

    EXPECT_TRUE(Eventually([&] { return passes > 2; }));
}

// ---------------------------------------------------------------- the sleeps of the thread itself

TEST(IThreadSleepTest, PausedThreadSleeps100MillisecondsAtATimeAndCallsRunNotOnce)
{
    ProbeThread probe;
    std::unique_ptr<SleepRecorder> recorder;
    std::vector<milliseconds> sleeps;
    int passes = 0;
    probe.onRunBefore = [&] {
        recorder = std::make_unique<SleepRecorder>();
        recorder->afterEach = [&] {
            if (recorder->requests.size() == 5) {
                StoreShared(probe.running, false);
            }
        };
    };
    probe.onRun = [&] { ++passes; };
    probe.onRunAfter = [&] {
        sleeps = recorder->Durations();
        recorder.reset();
    };
    probe.Pause();

    probe.Start();
    ASSERT_TRUE(probe.WaitUntilFinished(patience));

    EXPECT_EQ(sleeps, Times(5, 100ms));
    EXPECT_EQ(passes, 0);
}

TEST(IThreadSleepTest, StopSleeps100MillisecondsBetweenItsLooks)
{
    ProbeThread probe;
    probe.PretendToRun();

    SleepRecorder recorder;
    recorder.afterEach = [&] { StoreShared(probe.finished, recorder.requests.size() == 4); };
    probe.Stop();

    EXPECT_EQ(recorder.Durations(), Times(4, 100ms));
    EXPECT_FALSE(probe.running);
    probe.EndPretence();
}

TEST(IThreadSleepTest, InterruptedSleepOfStopContinuesWithTheRemainingTime)
{
    ProbeThread probe;
    probe.PretendToRun();

    SleepRecorder recorder;
    recorder.interruptions = {{0, 60000000}};
    recorder.afterEach = [&] { StoreShared(probe.finished, true); };
    probe.Stop();

    EXPECT_EQ(recorder.Durations(), (std::vector{100ms, 60ms}));
    probe.EndPretence();
}

TEST(IThreadSleepTest, InterruptedSleepOfTheHandOverContinuesWithTheRemainingTime)
{
    ProbeThread probe;
    probe.threadHandle = pthread_self();

    SleepRecorder recorder;
    recorder.interruptions = {{0, 5000000}};
    recorder.afterEach = [&] { StoreShared(probe.started, true); };
    probe.RunThread();

    EXPECT_EQ(recorder.Durations(), (std::vector{20ms, 5ms}));
}

TEST(IThreadSleepTest, HandOverIsPolled501TimesThenTheHandleIsLeftAndTheBodyEnds)
{
    LogFile log;
    ProbeThread probe;
    probe.SetThreadName("worker");
    probe.threadHandle = pthread_self();

    std::vector<milliseconds> sleeps;
    {
        const SleepRecorder recorder;
        probe.RunThread();
        sleeps = recorder.Durations();
    }

    EXPECT_EQ(sleeps, Times(501, 20ms));
    EXPECT_NE(probe.threadHandle, 0U);
    EXPECT_TRUE(probe.finished);
    EXPECT_THAT(log.TakeLines(),
                ElementsAre("[#Ithread]Thread (worker) has finished the execution"));
}

TEST(IThreadSleepTest, HandOverEndsTheWaitAndTheHandleIsCleared)
{
    ProbeThread probe;
    probe.threadHandle = pthread_self();

    SleepRecorder recorder;
    recorder.afterEach = [&] { StoreShared(probe.started, recorder.requests.size() == 7); };
    probe.RunThread();

    EXPECT_EQ(recorder.Durations(), Times(7, 20ms));
    EXPECT_EQ(probe.threadHandle, 0U);
    EXPECT_TRUE(probe.finished);
}

TEST(IThreadSleepTest, HandOverInTheLastWaitStillClearsTheHandle)
{
    ProbeThread probe;
    probe.threadHandle = pthread_self();

    SleepRecorder recorder;
    recorder.afterEach = [&] { StoreShared(probe.started, recorder.requests.size() == 501); };
    probe.RunThread();

    EXPECT_EQ(recorder.Durations(), Times(501, 20ms));
    EXPECT_EQ(probe.threadHandle, 0U);
}

}  // namespace
