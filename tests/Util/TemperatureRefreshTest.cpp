// The monitor's refreshes on the threads of its timer, with a period far below 60 seconds.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Tolvex/Util/TemperatureMonitor.h"

#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ThermalZone.h"
#include "tests/Support/TimerCalls.h"

namespace {

/// Signal masks, as seen by a read() on another thread than the first one.
struct MaskOfRefresh
{
    std::atomic<bool> seen = false;
    std::atomic<bool> blocksOrdinary = false;  ///< SIGTERM and SIGUSR1
    std::atomic<bool> blocksFaults = true;     ///< SIGSEGV or SIGBUS
};

MaskOfRefresh maskOfRefresh;

}  // namespace

extern "C" ssize_t read(int descriptor, void* buffer, size_t size)
{
    static auto* const real = Tolvex::Support::RealFunction<ssize_t(int, void*, size_t)>("read");
    if (gettid() != getpid()) {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        maskOfRefresh.blocksOrdinary =
            sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGUSR1) == 1;
        maskOfRefresh.blocksFaults =
            sigismember(&mask, SIGSEGV) == 1 || sigismember(&mask, SIGBUS) == 1;
        maskOfRefresh.seen = true;
    }
    return real(descriptor, buffer, size);
}

namespace Tolvex::Util {
namespace {

using namespace std::chrono_literals;
using Support::Eventually;
using Support::ThermalZone;
using Support::TimerCalls;

constexpr std::size_t refreshStackBytes = 16384;

class TemperatureRefreshTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TimerCalls::Reset();
        if (!ThermalZone::Enter()) {
            GTEST_SKIP() << ThermalZone::whyNot;
        }
        TimerCalls::Get().periodNanoseconds = 5000000;
    }
};

TEST_F(TemperatureRefreshTest, ComesEverySixtySecondsOnThreadsWith16384BytesOfStack)
{
    TimerCalls& calls = TimerCalls::Get();

    const TemperatureMonitor monitor;

    ASSERT_EQ(calls.created.size(), 1U);
    ASSERT_TRUE(calls.created[0].hasAttributes);
    EXPECT_EQ(calls.created[0].stackSize, refreshStackBytes);
    ASSERT_EQ(calls.set.size(), 1U);
    EXPECT_EQ(calls.set[0].times.it_interval.tv_sec, 60);
    EXPECT_EQ(calls.set[0].times.it_interval.tv_nsec, 0);
    EXPECT_EQ(calls.set[0].times.it_value.tv_sec, 60);
    EXPECT_EQ(calls.set[0].times.it_value.tv_nsec, 0);
}

TEST_F(TemperatureRefreshTest, RunsNoSignalHandlersButThoseOfFaults)
{
    ThermalZone::Write("47250\n");

    const TemperatureMonitor monitor;

    ASSERT_TRUE(Eventually([] { return maskOfRefresh.seen.load(); }));
    EXPECT_TRUE(maskOfRefresh.blocksOrdinary);
    EXPECT_FALSE(maskOfRefresh.blocksFaults);
}

TEST_F(TemperatureRefreshTest, TimerGoesWithTheMonitor)
{
    TimerCalls& calls = TimerCalls::Get();
    {
        const TemperatureMonitor monitor;
        EXPECT_TRUE(calls.deleted.empty());
    }
    ASSERT_EQ(calls.deleted.size(), 1U);
    EXPECT_EQ(calls.deleted[0], calls.created.at(0).timerId);
}

TEST_F(TemperatureRefreshTest, FollowsTheZoneAsItChangesGoesAndComesBack)
{
    ThermalZone::Write("47250\n");
    TemperatureMonitor monitor;
    ASSERT_EQ(monitor.GetTemperature(), 47);

    ThermalZone::Write("63000\n");
    EXPECT_TRUE(Eventually([&] { return monitor.GetTemperature() == 63; }));
    EXPECT_TRUE(Eventually([&] { return monitor.GetTemperatureAvailable(); }));

    ThermalZone::Remove();
    EXPECT_TRUE(Eventually([&] { return !monitor.GetTemperatureAvailable(); }));
    EXPECT_EQ(monitor.GetTemperature(), 63);

    ThermalZone::Write("51000\n");
    EXPECT_TRUE(Eventually([&] { return monitor.GetTemperature() == 51; }));
    EXPECT_TRUE(Eventually([&] { return monitor.GetTemperatureAvailable(); }));
}

TEST_F(TemperatureRefreshTest, RunsWhileItsMonitorIsDestroyed)
{
    ThermalZone::Write("47250\n");
    TimerCalls::Get().periodNanoseconds = 200000;

    for (int i = 0; i < 500; ++i) {
        auto monitor = std::make_unique<TemperatureMonitor>();
        std::this_thread::sleep_for(300us);
        EXPECT_EQ(monitor->GetTemperature(), 47);
        monitor.reset();
    }
}

TEST_F(TemperatureRefreshTest, ReadersOnOtherThreadsSeeOneValueOrTheOther)
{
    ThermalZone::Write("47250\n");
    TemperatureMonitor monitor;
    std::atomic<bool> done = false;
    std::thread reader([&] {
        while (!done) {
            const int value = monitor.GetTemperature();
            EXPECT_TRUE(value == 47 || value == 63) << value;
        }
    });

    const std::string other = ThermalZone::path + std::string(".other");
    for (int i = 0; i < 50; ++i) {
        std::ofstream(other) << (i % 2 == 0 ? "63000\n" : "47250\n");
        std::filesystem::rename(other, ThermalZone::path);
        std::this_thread::sleep_for(5ms);
    }
    done = true;
    reader.join();
}

}  // namespace
}  // namespace Tolvex::Util
