#include "Tolvex/Util/TimeMonitor.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/Logger.h"

#include "tests/Support/LogFile.h"
#include "tests/Support/RealFunction.h"

namespace {

using Tolvex::Support::RealFunction;

/// Replaces the wall clock of one thread while it exists.
class ClockStandIn
{
public:
    ClockStandIn() { current = this; }
    ~ClockStandIn() { current = nullptr; }

    ClockStandIn(const ClockStandIn&) = delete;
    ClockStandIn& operator=(const ClockStandIn&) = delete;

    timespec reading = {};
    int result = 0;
    int calls = 0;
    std::function<void()> onCall = [] {};

    static thread_local ClockStandIn* current;
};

thread_local ClockStandIn* ClockStandIn::current = nullptr;

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* reading)
{
    static auto* const real = RealFunction<int(clockid_t, timespec*)>("clock_gettime");
    ClockStandIn* const standIn = ClockStandIn::current;
    if (standIn == nullptr || clock != CLOCK_REALTIME) {
        return real(clock, reading);
    }
    ++standIn->calls;
    standIn->onCall();
    *reading = standIn->reading;
    return standIn->result;
}

namespace {

using ::testing::ElementsAre;
using Tolvex::Support::LogFile;
using Tolvex::Util::TimeMonitor;

timespec Reading(std::time_t seconds, long nanoseconds)
{
    return {seconds, nanoseconds};
}

TEST(TimeMonitorTest, ReadingRightAfterTheStartIsSmallAndNotNegative)
{
    TimeMonitor monitor(true);

    const double elapsed = monitor.GetElapsedTime();

    EXPECT_GE(elapsed, 0.0);
    EXPECT_LT(elapsed, 30.0);
}

TEST(TimeMonitorTest, ElapsedTimeIsAtLeastTheTimeThatWasSlept)
{
    TimeMonitor monitor(true);

    std::this_thread::sleep_for(std::chrono::milliseconds(120));

    EXPECT_GE(monitor.GetElapsedTime(), 0.119);
}

TEST(TimeMonitorTest, StartTimerReturnsFalseThoughTheStartInstantIsStored)
{
    ClockStandIn clock;
    TimeMonitor monitor(false);

    clock.reading = Reading(1000, 500);
    EXPECT_FALSE(monitor.StartTimer());

    clock.reading = Reading(1002, 500);
    EXPECT_DOUBLE_EQ(monitor.GetElapsedTime(), 2.0);
}

TEST(TimeMonitorTest, StartTimerReturnsFalseWhenTheClockFails)
{
    ClockStandIn clock;
    TimeMonitor monitor(false);

    clock.result = -1;

    EXPECT_FALSE(monitor.StartTimer());
}

TEST(TimeMonitorTest, ConstructionReadsTheClockOnceWhenAskedToStartAndElseNotAtAll)
{
    ClockStandIn clock;

    TimeMonitor started(true);
    EXPECT_EQ(clock.calls, 1);
    TimeMonitor idle(false);
    EXPECT_EQ(clock.calls, 1);
}

TEST(TimeMonitorTest, CanBeInitialisedFromABoolWithAnEqualsSign)
{
    ClockStandIn clock;

    TimeMonitor monitor = true;

    EXPECT_EQ(clock.calls, 1);
    EXPECT_DOUBLE_EQ(monitor.GetElapsedTime(), 0.0);
}

TEST(TimeMonitorTest, LaterStartBehavesLikeTheStartInTheConstructor)
{
    ClockStandIn clock;
    clock.reading = Reading(70, 0);
    TimeMonitor early(true);
    TimeMonitor late(false);
    late.StartTimer();

    clock.reading = Reading(75, 250000000);

    EXPECT_DOUBLE_EQ(early.GetElapsedTime(), 5.25);
    EXPECT_DOUBLE_EQ(late.GetElapsedTime(), 5.25);
}

TEST(TimeMonitorTest, FailingClockGivesZeroSeconds)
{
    ClockStandIn clock;
    clock.reading = Reading(10, 0);
    TimeMonitor monitor(true);
    clock.reading = Reading(20, 0);

    clock.result = -1;
    EXPECT_EQ(monitor.GetElapsedTime(), 0.0);

    clock.result = 0;
    EXPECT_EQ(monitor.GetElapsedTime(), 10.0);
}

TEST(TimeMonitorTest, NegativeNanosecondDifferenceAcrossASecondIsRight)
{
    ClockStandIn clock;
    clock.reading = Reading(10, 900000000);
    TimeMonitor monitor(true);

    clock.reading = Reading(11, 100000000);

    EXPECT_NEAR(monitor.GetElapsedTime(), 0.2, 1e-12);
}

TEST(TimeMonitorTest, ClockThatWasSetBackGivesANegativeTime)
{
    ClockStandIn clock;
    clock.reading = Reading(100, 0);
    TimeMonitor monitor(true);

    clock.reading = Reading(40, 0);

    EXPECT_EQ(monitor.GetElapsedTime(), -60.0);
}

TEST(TimeMonitorTest, SecondsAreSubtractedInThirtyTwoBitsAndWrap)
{
    ClockStandIn clock;
    clock.reading = Reading(std::numeric_limits<std::int32_t>::min(), 0);
    TimeMonitor monitor(true);

    clock.reading = Reading(std::numeric_limits<std::int32_t>::max(), 0);

    EXPECT_EQ(monitor.GetElapsedTime(), -1.0);
}

TEST(TimeMonitorTest, ReadingDoesNotRestartAndStartTimerDoes)
{
    ClockStandIn clock;
    TimeMonitor monitor(true);
    clock.reading = Reading(3, 0);
    EXPECT_EQ(monitor.GetElapsedTime(), 3.0);
    clock.reading = Reading(4, 0);
    EXPECT_EQ(monitor.GetElapsedTime(), 4.0);

    monitor.StartTimer();

    clock.reading = Reading(9, 0);
    EXPECT_EQ(monitor.GetElapsedTime(), 5.0);
}

TEST(TimeMonitorTest, LineHasTheNameAndSixSignificantDigitsAndNoModule)
{
    LogFile log;
    {
        ClockStandIn clock;
        TimeMonitor monitor(true);
        clock.reading = Reading(0, 12345678);
        monitor.ShowElapsedTime("decode");
        clock.reading = Reading(1234567, 0);
        monitor.ShowElapsedTime("");
        clock.reading = Reading(0, 0);
        monitor.ShowElapsedTime("zero");
    }

    EXPECT_THAT(log.TakeLines(),
                ElementsAre("Time elapsed [decode] => 0.0123457", "Time elapsed [] => 1.23457e+06",
                            "Time elapsed [zero] => 0"));
}

TEST(TimeMonitorTest, LineDoesNotRestartTheMeasurement)
{
    LogFile log;
    ClockStandIn clock;
    TimeMonitor monitor(true);
    clock.reading = Reading(2, 0);
    monitor.ShowElapsedTime("first");

    clock.reading = Reading(3, 0);

    EXPECT_EQ(monitor.GetElapsedTime(), 3.0);
}

TEST(TimeMonitorTest, ClockIsReadOnceThoughNothingIsLogged)
{
    ClockStandIn clock;
    TimeMonitor monitor(true);
    clock.calls = 0;

    monitor.ShowElapsedTime("unheard");

    EXPECT_EQ(clock.calls, 1);
}

TEST(TimeMonitorTest, MeasuredTimeIncludesTheWaitForTheLine)
{
    LogFile log;
    TimeMonitor monitor(true);
    Tolvex::Ilog::Logger& logger = *Tolvex::Ilog::Logger::GetInstance();
    logger.WriteHeader(Tolvex::Ilog::LogType::Info);
    std::thread shower([&] { monitor.ShowElapsedTime("waited"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    logger << "first" << std::endl;
    shower.join();

    const std::vector<std::string> lines = log.TakeLines();

    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "first");
    const std::string head = "Time elapsed [waited] => ";
    ASSERT_EQ(lines[1].substr(0, head.size()), head);
    EXPECT_GE(std::stod(lines[1].substr(head.size())), 0.29);
}

TEST(TimeMonitorTest, ClockIsReadOnlyWhenTheTextBeforeTheTimeWasComposed)
{
    LogFile log;
    {
        ClockStandIn clock;
        TimeMonitor monitor(true);
        clock.reading = Reading(5, 0);
        clock.onCall = [] { *Tolvex::Ilog::Logger::GetInstance() << "(clock read)"; };
        monitor.ShowElapsedTime("decode");
    }

    EXPECT_THAT(log.TakeLines(), ElementsAre("Time elapsed [decode] => (clock read)5"));
}

TEST(TimeMonitorTest, NameOfAnyLengthIsLogged)
{
    LogFile log;
    const std::string name(100000, 'n');
    ClockStandIn clock;
    TimeMonitor monitor(true);
    clock.reading = Reading(1, 0);

    monitor.ShowElapsedTime(name);

    EXPECT_THAT(log.TakeLines(), ElementsAre("Time elapsed [" + name + "] => 1"));
}

}  // namespace
