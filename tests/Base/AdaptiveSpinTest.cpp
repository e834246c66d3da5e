#include "Tolvex/Base/Private/AdaptiveSpin.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <sched.h>
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

/// Runs work, a void(), on a thread that may use so many of the processors that this one may use.
/// @return false when there are too few of them.
template <typename Work>
bool OnProcessors(int count, Work work)
{
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    EXPECT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
    if (CPU_COUNT(&allowed) < count) {
        return false;
    }
    for (std::size_t processor = 0; CPU_COUNT(&allowed) > count; ++processor) {
        CPU_CLR(processor, &allowed);
    }
    std::thread([&] {
        EXPECT_EQ(sched_setaffinity(0, sizeof(allowed), &allowed), 0);
        work();
    }).join();
    return true;
}

TEST(AdaptiveSpinTest, OnOneProcessorNothingSpins)
{
    EXPECT_TRUE(OnProcessors(1, [] {
        AdaptiveSpin spin;
        for (int wait = 0; wait < 200; ++wait) {
            EXPECT_EQ(FailedWait(spin), 1) << wait;
        }
    }));
}

TEST(AdaptiveSpinTest, OnTwoProcessorsTheFirstWaitSpins)
{
    const bool enough = OnProcessors(2, [] {
        AdaptiveSpin spin;
        EXPECT_GT(FailedWait(spin), 1);
    });
    if (!enough) {
        GTEST_SKIP() << "needs two processors";
    }
}

TEST(AdaptiveSpinTest, ProcessorThatIsTakenAwayEndsTheSpinningAfterOneFailure)
{
    const bool enough = OnProcessors(2, [] {
        AdaptiveSpin spin;
        EXPECT_GT(FailedWait(spin), 1);
        cpu_set_t allowed;
        CPU_ZERO(&allowed);
        EXPECT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
        for (std::size_t processor = 0; CPU_COUNT(&allowed) > 1; ++processor) {
            CPU_CLR(processor, &allowed);
        }
        EXPECT_EQ(sched_setaffinity(0, sizeof(allowed), &allowed), 0);

        for (int wait = 0; wait < 200; ++wait) {
            EXPECT_EQ(FailedWait(spin), 1) << wait;
        }
    });
    if (!enough) {
        GTEST_SKIP() << "needs two processors";
    }
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
