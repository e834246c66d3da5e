#include "Tolvex/Util/TemperatureMonitor.h"

#include <algorithm>
#include <barrier>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/OwnProcess.h"
#include "tests/Support/ThermalZone.h"
#include "tests/Support/TimerCalls.h"

namespace Tolvex::Util {
namespace {

using Support::ChildResult;
using Support::CountDescriptors;
using Support::RunInChild;
using Support::ThermalZone;
using Support::TimerCalls;

/// Every test runs in a private mount namespace, which has no thermal zone at first.
class TemperatureMonitorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TimerCalls::Reset();
        if (!ThermalZone::Enter()) {
            GTEST_SKIP() << ThermalZone::whyNot;
        }
    }
};

TEST_F(TemperatureMonitorTest, FirstReadIsMadeByTheConstructor)
{
    ThermalZone::Write("47250\n");

    TemperatureMonitor monitor;

    EXPECT_TRUE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(monitor.GetTemperature(), 47);
}

TEST_F(TemperatureMonitorTest, WithoutZoneTheTemperatureIsUnavailableAndZero)
{
    TemperatureMonitor monitor;

    EXPECT_FALSE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(monitor.GetTemperature(), 0);
}

TEST_F(TemperatureMonitorTest, DirectoryInPlaceOfTheZoneIsUnavailable)
{
    ThermalZone::MakeDirectory();

    TemperatureMonitor monitor;

    EXPECT_FALSE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(monitor.GetTemperature(), 0);
}

TEST_F(TemperatureMonitorTest, EmptyZoneIsUnavailableAndLeavesTheTemperature)
{
    ThermalZone::Write("47250\n");
    TemperatureMonitor monitor;
    ThermalZone::Write("");

    EXPECT_EQ(monitor.ReadTemperature(), 47);

    EXPECT_FALSE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(monitor.GetTemperature(), 47);
}

TEST_F(TemperatureMonitorTest, ZoneRemovedBetweenReadsIsUnavailableAndLeavesTheTemperature)
{
    ThermalZone::Write("63000\n");
    TemperatureMonitor monitor;
    ThermalZone::Remove();

    EXPECT_EQ(monitor.ReadTemperature(), 63);

    EXPECT_FALSE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(monitor.GetTemperature(), 63);
}

TEST_F(TemperatureMonitorTest, ZoneThatComesBackIsAvailableAgain)
{
    TemperatureMonitor monitor;
    ThermalZone::Write("51999\n");

    EXPECT_EQ(monitor.ReadTemperature(), 51);

    EXPECT_TRUE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(monitor.GetTemperature(), 51);
}

TEST_F(TemperatureMonitorTest, TickReadsTheZoneAgainWithoutATimer)
{
    ThermalZone::Write("20000\n");
    TemperatureMonitor monitor;
    ThermalZone::Write("30000\n");

    monitor.Tick(nullptr);

    EXPECT_EQ(monitor.GetTemperature(), 30);
}

TEST_F(TemperatureMonitorTest, UnreadableZoneIsUnavailable)
{
    ThermalZone::Write("47250\n");
    ASSERT_EQ(chmod(ThermalZone::path, 0), 0);

    const ChildResult result = RunInChild([] {
        EXPECT_EQ(setgroups(0, nullptr), 0);
        EXPECT_EQ(setgid(65534), 0);
        EXPECT_EQ(setuid(65534), 0);
        EXPECT_EQ(open(ThermalZone::path, O_RDONLY), -1);
        EXPECT_EQ(errno, EACCES);

        TemperatureMonitor monitor;

        EXPECT_FALSE(monitor.GetTemperatureAvailable());
        EXPECT_EQ(monitor.GetTemperature(), 0);
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST_F(TemperatureMonitorTest, FirstCallsOnManyThreadsAtOnceMakeOneMonitor)
{
    ThermalZone::Write("47250\n");

    const ChildResult result = RunInChild([] {
        constexpr std::ptrdiff_t count = 16;
        std::vector<TemperatureMonitor*> monitors(count);
        std::vector<std::thread> threads;
        threads.reserve(count);
        std::barrier together(count);

        for (TemperatureMonitor*& monitor : monitors) {
            threads.emplace_back([&] {
                together.arrive_and_wait();
                monitor = TemperatureMonitor::GetInstance();
                EXPECT_EQ(monitor->GetTemperature(), 47);
                EXPECT_TRUE(monitor->GetTemperatureAvailable());
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }

        EXPECT_NE(monitors[0], nullptr);
        EXPECT_EQ(std::count(monitors.begin(), monitors.end(), monitors[0]), count);
        // The losers of the race have deleted their copies, with the timers.
        EXPECT_EQ(TimerCalls::Get().created.size() - TimerCalls::Get().deleted.size(), 1U);
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST_F(TemperatureMonitorTest, StartMakesTheMonitorOnce)
{
    const ChildResult result = RunInChild([] {
        TemperatureMonitor::Start();
        TemperatureMonitor* const monitor = TemperatureMonitor::GetInstance();
        TemperatureMonitor::Start();

        EXPECT_EQ(TemperatureMonitor::GetInstance(), monitor);
        EXPECT_EQ(TimerCalls::Get().created.size(), 1U);
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST_F(TemperatureMonitorTest, WithoutZoneThereIsAMonitorForTheProcessAllTheSame)
{
    const ChildResult result = RunInChild([] {
        TemperatureMonitor::Start();
        TemperatureMonitor* const monitor = TemperatureMonitor::GetInstance();

        EXPECT_NE(monitor, nullptr);
        EXPECT_FALSE(monitor->GetTemperatureAvailable());
        EXPECT_EQ(monitor->GetTemperature(), 0);
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

// Loggers ask for the temperature on threads that may be aborted.
TEST_F(TemperatureMonitorTest, CancelledThreadFinishesItsReadAndStaysCancellable)
{
    ThermalZone::Write("47250\n");
    TemperatureMonitor monitor;
    ThermalZone::Write("63000\n");
    const std::ptrdiff_t descriptors = CountDescriptors();
    pthread_t thread;
    const auto read = [](void* argument) -> void* {
        pthread_cancel(pthread_self());
        static_cast<TemperatureMonitor*>(argument)->ReadTemperature();
        pthread_testcancel();
        return nullptr;
    };

    ASSERT_EQ(pthread_create(&thread, nullptr, read, &monitor), 0);

    void* outcome = nullptr;
    ASSERT_EQ(pthread_join(thread, &outcome), 0);
    EXPECT_EQ(outcome, PTHREAD_CANCELED);
    EXPECT_EQ(monitor.GetTemperature(), 63);
    EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST_F(TemperatureMonitorTest, ReadsLeaveNoDescriptorOpen)
{
    TemperatureMonitor monitor;
    const std::ptrdiff_t descriptors = CountDescriptors();

    ThermalZone::Write("47250\n");
    monitor.ReadTemperature();
    ThermalZone::Write("");
    monitor.ReadTemperature();
    ThermalZone::MakeDirectory();
    monitor.ReadTemperature();
    ThermalZone::Remove();
    monitor.ReadTemperature();

    EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST_F(TemperatureMonitorTest, WithoutItsTimerTheMonitorKeepsItsFirstValue)
{
    const ChildResult result = RunInChild([] {
        rlimit limit = {};
        EXPECT_EQ(getrlimit(RLIMIT_SIGPENDING, &limit), 0);
        limit.rlim_cur = 0;
        EXPECT_EQ(setrlimit(RLIMIT_SIGPENDING, &limit), 0);
        ThermalZone::Write("47250\n");

        const auto monitor = std::make_unique<TemperatureMonitor>();

        EXPECT_EQ(TimerCalls::Get().created.back().result, -1);
        EXPECT_TRUE(monitor->GetTemperatureAvailable());
        EXPECT_EQ(monitor->GetTemperature(), 47);
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
    EXPECT_EQ(result.output, "");
}

struct ZoneText
{
    const char* name;
    const char* text;
    int degrees;
};

class ZoneTextTest : public TemperatureMonitorTest, public ::testing::WithParamInterface<ZoneText>
{
};

TEST_P(ZoneTextTest, GivesTheNumberInItsFirstTwoCharacters)
{
    ThermalZone::Write(GetParam().text);

    TemperatureMonitor monitor;

    EXPECT_TRUE(monitor.GetTemperatureAvailable());
    EXPECT_EQ(monitor.GetTemperature(), GetParam().degrees);
    EXPECT_EQ(monitor.ReadTemperature(), GetParam().degrees);
}

INSTANTIATE_TEST_SUITE_P(
    TwoCharacterShortcut, ZoneTextTest,
    ::testing::Values(
        ZoneText{"WholeDegreesAreCutNotRounded", "47999\n", 47},
        ZoneText{"TenDegrees", "10000\n", 10}, ZoneText{"NinetyNineDegrees", "99999\n", 99},
        ZoneText{"HundredAndFiveDegreesReadAsTen", "105000\n", 10},
        ZoneText{"NineAndAHalfDegreesReadAsNinetyFive", "9500\n", 95},
        ZoneText{"MinusFiveDegreesReadAsMinusFive", "-5000\n", -5},
        ZoneText{"MinusFifteenDegreesReadAsMinusOne", "-15000\n", -1},
        ZoneText{"OneCharacter", "7", 7}, ZoneText{"TwoCharactersWithoutNewline", "42", 42},
        ZoneText{"OneCharacterAndNewline", "8\n", 8}, ZoneText{"ZeroThousandths", "0\n", 0},
        ZoneText{"NewlineAlone", "\n", 0}, ZoneText{"SignAlone", "-", 0},
        ZoneText{"Letters", "hot", 0}, ZoneText{"DigitThenLetter", "3x5", 3}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace Tolvex::Util
