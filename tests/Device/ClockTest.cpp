// A board without a clock chip starts in 1970, and its clock is set forward later. These tests set
// the clock of the whole board, so they run on the emulated one only and with no other test.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/IAsync.h"
#include "Tolvex/Util/Tick.h"
#include "Tolvex/Util/TimeMonitor.h"
#include "Tolvex/Util/Timer.h"
#include "Tolvex/Util/UtilEventName.h"

#include "tests/Support/Board.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ProbeThread.h"

namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;
using Tolvex::Support::Eventually;
using Tolvex::Support::IsOnBoard;
using Tolvex::Support::OnBoardTest;
using Tolvex::Support::ProbeThread;

// Later than the board has run: the kernel refuses a wall clock behind its monotonic one.
constexpr std::time_t firstDay = 40000;       // 1970-01-01 11:06:40
constexpr std::time_t laterDay = 1794787200;  // 2026-11-16 00:00:00

void SetClock(std::time_t seconds)
{
    const timespec instant{seconds, 0};
    ASSERT_EQ(clock_settime(CLOCK_REALTIME, &instant), 0);
}

class ClockOnBoardTest : public OnBoardTest
{
protected:
    void SetUp() override
    {
        OnBoardTest::SetUp();
        if (!IsSkipped()) {
            SetClock(firstDay);
        }
    }

    void TearDown() override
    {
        if (IsOnBoard()) {
            const auto passed =
                std::chrono::duration_cast<std::chrono::seconds>(Steady::now() - begin);
            SetClock(before + static_cast<std::time_t>(passed.count()));
        }
    }

private:
    const std::time_t before = std::time(nullptr);
    const Steady::time_point begin = Steady::now();
};

TEST_F(ClockOnBoardTest, PeriodicTimerKeepsItsPeriodWhenTheClockIsSet)
{
    // Shared with callbacks that may come late.
    const auto calls = std::make_shared<std::atomic<int>>(0);
    const auto start = Steady::now();
    Tolvex::Util::Timer timer(
        1500, [calls](auto*) { ++*calls; }, nullptr, 65536);
    ASSERT_EQ(timer.GetErrorText(), "");

    SetClock(laterDay);

    ASSERT_TRUE(Eventually([&] { return *calls == 1; }));
    EXPECT_GE(Steady::now() - start, 1500ms);
    SetClock(firstDay);
    ASSERT_TRUE(Eventually([&] { return *calls >= 2; }));
    EXPECT_GE(Steady::now() - start, 3000ms);
}

TEST_F(ClockOnBoardTest, DelayedCallbackKeepsItsDelayWhenTheClockIsSet)
{
    const auto called = std::make_shared<std::atomic<bool>>(false);
    const auto start = Steady::now();
    const Tolvex::Util::IAsync call(
        1500ms, [called](auto*) { *called = true; }, nullptr);

    SetClock(laterDay);

    ASSERT_TRUE(Eventually([&] { return called->load(); }));
    EXPECT_GE(Steady::now() - start, 1500ms);
}

TEST_F(ClockOnBoardTest, TickCountsSecondsThatPassedAndNotThoseThatWereSet)
{
    Tolvex::Util::Tick& tick = *Tolvex::Util::Tick::GetInstance();
    const auto start = Steady::now();
    const std::uint64_t first = tick.GetTickCount();

    SetClock(laterDay);
    ASSERT_TRUE(Eventually([&] { return tick.GetTickCount() >= first + 3; }));

    // The first second may have begun before the start.
    const auto passed = Steady::now() - start;
    EXPECT_GE(passed, 2s);
    EXPECT_LE(tick.GetTickCount() - first,
              static_cast<std::uint64_t>(std::chrono::ceil<std::chrono::seconds>(passed).count()));
}

TEST_F(ClockOnBoardTest, StopwatchShowsTheStepOfTheClock)
{
    Tolvex::Util::TimeMonitor stopwatch(true);

    SetClock(laterDay);

    const double elapsed = stopwatch.GetElapsedTime();
    constexpr double step = laterDay - firstDay;
    EXPECT_GE(elapsed, step - 30);  // the start was a little behind the first day
    EXPECT_LE(elapsed, step + 30);
}

TEST_F(ClockOnBoardTest, WorkerSleepsAsLongAsItWasToldWhenTheClockIsSet)
{
    ProbeThread worker;
    std::atomic<int> sleeps = 0;
    std::atomic<Steady::duration> slept = Steady::duration::zero();
    worker.onRun = [&] {
        const auto start = Steady::now();
        ++sleeps;
        worker.ThreadSleep(1500ms, 100ms);
        slept = Steady::now() - start;
    };
    worker.Start();
    ASSERT_TRUE(Eventually([&] { return sleeps == 1; }));

    SetClock(laterDay);

    ASSERT_TRUE(Eventually([&] { return sleeps >= 2; }));
    EXPECT_GE(slept.load(), 1500ms);
    worker.Stop();
}

TEST_F(ClockOnBoardTest, EventNameOfTheFirstDayReadsBackACenturyLater)
{
    const std::string early =
        Tolvex::Util::BuildEventFileName("EVENT_FRONT_", std::time(nullptr), "mp4");
    EXPECT_EQ(early.substr(0, 20), "EVENT_FRONT_01017011");
    std::time_t read = 0;
    ASSERT_TRUE(Tolvex::Util::GetEventTimeFromFileName(early, read));
    EXPECT_EQ(read, static_cast<std::time_t>(-1));  // 2070 is beyond 32 bits

    SetClock(laterDay);

    EXPECT_EQ(
        Tolvex::Util::BuildEventFileName("EVENT_FRONT_", std::time(nullptr), "mp4").substr(0, 20),
        "EVENT_FRONT_16112600");
}

TEST_F(ClockOnBoardTest, LogLinesShowTheNewTimeAtOnce)
{
    const std::string file =
        (std::filesystem::temp_directory_path() / "clock-on-board.log").string();
    Tolvex::Ilog::Logger& logger = *Tolvex::Ilog::Logger::GetInstance();
    ASSERT_TRUE(logger.EnableFile(file));

    Tolvex::Ilog::LogLine(Tolvex::Ilog::LogType::Info) << "early";
    SetClock(laterDay);
    Tolvex::Ilog::LogLine(Tolvex::Ilog::LogType::Info) << "late";
    logger.CloseFile();

    std::ifstream lines(file);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line.substr(0, 12), "[1970-01-01 ");
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line.substr(0, 12), "[2026-11-16 ");
    std::filesystem::remove(file);
}

}  // namespace
