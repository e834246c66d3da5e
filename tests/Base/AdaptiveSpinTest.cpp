#include "Tolvex/Base/Private/AdaptiveSpin.h"

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

namespace {

using Tolvex::Base::AdaptiveSpin;

/// Waits for a condition that never holds. @return how often it was tested.
int FailedWait(AdaptiveSpin& spin)
{
    int looks = 0;
    EXPECT_FALSE(spin.Until([&looks] {
        ++looks;
        return false;
    }));
    return looks;
}

/// Makes waits that fail until one of them spins. @return how many did not spin.
int WaitsWithoutSpin(AdaptiveSpin& spin)
{
    int waits = 0;
    while (FailedWait(spin) == 1) {
        ++waits;
    }
    return waits;
}

TEST(AdaptiveSpinTest, LooksOnceWhenTheConditionHolds)
{
    AdaptiveSpin spin;
    int looks = 0;

    EXPECT_TRUE(spin.Until([&looks] { return ++looks == 1; }));

    EXPECT_EQ(looks, 1);
}

TEST(AdaptiveSpinTest, LooksUntilTheConditionHoldsAndNotOnceMore)
{
    AdaptiveSpin spin;
    int looks = 0;

    EXPECT_TRUE(spin.Until([&looks] { return ++looks == 10; }));

    EXPECT_EQ(looks, 10);
}

TEST(AdaptiveSpinTest, GivesUpAfter50Microseconds)
{
    AdaptiveSpin spin;

    const auto start = std::chrono::steady_clock::now();
    EXPECT_GT(FailedWait(spin), 1);

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::microseconds(50));
}

TEST(AdaptiveSpinTest, SeesWhatAnotherThreadDoes)
{
    std::atomic<bool> done = false;
    std::thread other([&done] { done = true; });
    AdaptiveSpin spin;

    while (!spin.Until([&done] { return done.load(); })) {
        std::this_thread::yield();
    }

    other.join();
    EXPECT_TRUE(done);
}

TEST(AdaptiveSpinTest, EachSpinThatFailsDoublesTheWaitsWithoutOneUpTo64)
{
    AdaptiveSpin spin;
    EXPECT_EQ(WaitsWithoutSpin(spin), 0);

    for (const int waits : {1, 2, 4, 8, 16, 32, 64, 64, 64}) {
        EXPECT_EQ(WaitsWithoutSpin(spin), waits);
    }
}

TEST(AdaptiveSpinTest, SpinThatSucceedsResetsTheBackoff)
{
    AdaptiveSpin spin;
    for (int round = 0; round < 5; ++round) {
        WaitsWithoutSpin(spin);
    }
    for (int wait = 0; wait < 16; ++wait) {
        FailedWait(spin);
    }
    int looks = 0;
    EXPECT_TRUE(spin.Until([&looks] { return ++looks == 2; }));

    EXPECT_EQ(WaitsWithoutSpin(spin), 0);
    EXPECT_EQ(WaitsWithoutSpin(spin), 1);
}

TEST(AdaptiveSpinTest, ConditionThatHoldsAtOnceDoesNotChangeTheBackoff)
{
    AdaptiveSpin spin;
    FailedWait(spin);

    EXPECT_TRUE(spin.Until([] { return true; }));

    EXPECT_EQ(WaitsWithoutSpin(spin), 1);
}

}  // namespace
