// How much of its stack the first refresh of a process uses. Alone in its program: the first expiry
// also resolves the functions that were never called before, which needs the most stack.

#include <atomic>
#include <cstddef>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Util/TemperatureMonitor.h"

#include "tests/Support/Patience.h"
#include "tests/Support/ThermalZone.h"
#include "tests/Support/ThreadStack.h"
#include "tests/Support/TimerCalls.h"

namespace Tolvex::Util {
namespace {

using Support::ThermalZone;
using Support::ThreadStack;
using Support::TimerCalls;

constexpr std::size_t refreshStackBytes = 16384;
constexpr std::size_t reserve = 1024;  // for a C library that uses more

std::atomic<bool> busy;
std::atomic<int> measured;
std::atomic<std::size_t> used;   // by the first expiry and by the C library
std::atomic<std::size_t> whole;  // size of its stack

void MeasureFirstExpiry(union sigval value)
{
    if (busy.exchange(true)) {
        Timer::CB(value);
        return;
    }
    const ThreadStack stack;
    stack.Paint();
    Timer::CB(value);
    used = stack.Used();
    whole = stack.Size();
    ++measured;
}

TEST(TemperatureStackTest, RefreshFitsItsStackWithRoomToSpare)
{
    if (!ThermalZone::Enter()) {
        GTEST_SKIP() << ThermalZone::whyNot;
    }
    ThermalZone::Write("47250\n");
    TimerCalls::Get().expiry = MeasureFirstExpiry;
    TimerCalls::Get().periodNanoseconds = 200000000;  // instead of 60 s

    TemperatureMonitor* const monitor = TemperatureMonitor::GetInstance();
    ThermalZone::Write("63000\n");

    ASSERT_TRUE(Support::Eventually([] { return measured == 1; }));
    EXPECT_TRUE(Support::Eventually([monitor] { return monitor->GetTemperature() == 63; }));
    EXPECT_GE(whole, refreshStackBytes);
    EXPECT_LE(used, refreshStackBytes - reserve);
    std::cout << "a refresh uses " << used << " of " << whole << " bytes\n";
    RecordProperty("stackBytesUsed", std::to_string(used));
}

}  // namespace
}  // namespace Tolvex::Util
