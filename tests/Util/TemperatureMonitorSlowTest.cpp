// One refresh of the process's monitor after a real minute, as on the device.

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "Tolvex/Util/TemperatureMonitor.h"

#include "tests/Support/ThermalZone.h"

namespace Tolvex::Util {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Support::ThermalZone;

TEST(TemperatureMonitorSlowTest, RemovedZoneIsNoticedAfterSixtySecondsAndNotBefore)
{
    if (!ThermalZone::Enter()) {
        GTEST_SKIP() << ThermalZone::whyNot;
    }
    ThermalZone::Write("47250\n");
    const auto start = Clock::now();
    TemperatureMonitor* const monitor = TemperatureMonitor::GetInstance();
    ASSERT_TRUE(monitor->GetTemperatureAvailable());
    ASSERT_EQ(monitor->GetTemperature(), 47);
    ThermalZone::Remove();

    while (monitor->GetTemperatureAvailable() && Clock::now() - start < 100s) {
        std::this_thread::sleep_for(10ms);
    }

    EXPECT_FALSE(monitor->GetTemperatureAvailable());
    EXPECT_GE(Clock::now() - start, 60s);
    EXPECT_EQ(monitor->GetTemperature(), 47);
}

}  // namespace
}  // namespace Tolvex::Util
