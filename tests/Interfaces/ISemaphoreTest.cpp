#include "Tolvex/Interfaces/ISemaphore.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <limits>
#include <memory>
#include <pthread.h>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/Pace.h"
#include "tests/Support/Patience.h"

using namespace std::chrono_literals;

namespace Tolvex::Interfaces {
namespace {

using Support::Eventually;
using Support::patience;

constexpr auto shortWhile = 50ms;

/// A thread that waits once on a semaphore.
class Waiter
{
public:
    explicit Waiter(ISemaphore& semaphore)
        : passed(std::async(std::launch::async, [&semaphore] { semaphore.Wait(); }))
    {
    }

    bool PassesWithin(std::chrono::milliseconds limit)
    {
        return passed.wait_for(limit) == std::future_status::ready;
    }

private:
    std::future<void> passed;
};

/// Takes all tokens. @return how many there were.
int Drain(ISemaphore& semaphore)
{
    int tokens = 0;
    while (semaphore.TryWait()) {
        ++tokens;
    }
    return tokens;
}

TEST(ISemaphoreTest, IsNeitherPolymorphicNorCopied)
{
    EXPECT_FALSE(std::is_polymorphic_v<ISemaphore>);
    EXPECT_FALSE(std::is_copy_constructible_v<ISemaphore>);
    EXPECT_FALSE(std::is_copy_assignable_v<ISemaphore>);
}

TEST(ISemaphoreTest, CanBeInitialisedFromANumberWithAnEqualsSign)
{
    ISemaphore semaphore = 2;

    EXPECT_EQ(Drain(semaphore), 2);
}

TEST(ISemaphoreTest, TryWaitOnZeroFails)
{
    ISemaphore semaphore(0);

    EXPECT_FALSE(semaphore.TryWait());
}

TEST(ISemaphoreTest, NotifyLetsOneTryWaitPass)
{
    ISemaphore semaphore(0);

    semaphore.Notify();

    EXPECT_TRUE(semaphore.TryWait());
    EXPECT_FALSE(semaphore.TryWait());
}

TEST(ISemaphoreTest, InitialCountIsTheNumberOfTokens)
{
    ISemaphore semaphore(3);

    EXPECT_EQ(Drain(semaphore), 3);
}

TEST(ISemaphoreTest, WaitTakesOneToken)
{
    ISemaphore semaphore(3);

    semaphore.Wait();

    EXPECT_EQ(Drain(semaphore), 2);
}

TEST(ISemaphoreTest, TwoNotifiesBeforeAnyWaitLetTwoWaitsPass)
{
    ISemaphore semaphore(0);
    semaphore.Notify();
    semaphore.Notify();

    semaphore.Wait();
    semaphore.Wait();

    EXPECT_FALSE(semaphore.TryWait());
}

TEST(ISemaphoreTest, WaitOnANegativeCountReturnsAtOnceAndSinksFurther)
{
    ISemaphore semaphore(-1);

    semaphore.Wait();  // leaves -2

    semaphore.Notify();
    semaphore.Notify();
    EXPECT_FALSE(semaphore.TryWait());  // 0
    semaphore.Notify();
    EXPECT_TRUE(semaphore.TryWait());
}

TEST(ISemaphoreTest, TryWaitOnANegativeCountFailsAndLeavesIt)
{
    ISemaphore semaphore(-1);

    EXPECT_FALSE(semaphore.TryWait());
    EXPECT_FALSE(semaphore.TryWait());

    semaphore.Notify();
    EXPECT_FALSE(semaphore.TryWait());  // 0
    semaphore.Notify();
    EXPECT_TRUE(semaphore.TryWait());
}

TEST(ISemaphoreTest, NegativeCountThatRisesToZeroBlocksAgain)
{
    ISemaphore semaphore(-1);
    semaphore.Notify();
    Waiter waiter(semaphore);

    EXPECT_FALSE(waiter.PassesWithin(shortWhile));
    semaphore.Notify();

    EXPECT_TRUE(waiter.PassesWithin(patience));
}

TEST(ISemaphoreTest, CountHasMoreThan32Bits)
{
    constexpr long long beyond = 1LL << 32;
    ISemaphore positive(beyond);
    ISemaphore negative(-beyond);

    positive.Wait();
    negative.Wait();

    EXPECT_TRUE(positive.TryWait());
    EXPECT_FALSE(negative.TryWait());
}

TEST(ISemaphoreTest, LargestCountStaysWhereItIs)
{
    ISemaphore semaphore(std::numeric_limits<long long>::max());

    semaphore.Notify();

    EXPECT_TRUE(semaphore.TryWait());
}

TEST(ISemaphoreTest, SmallestCountStaysWhereItIs)
{
    ISemaphore semaphore(std::numeric_limits<long long>::min());

    semaphore.Wait();

    EXPECT_FALSE(semaphore.TryWait());
}

TEST(ISemaphoreTest, WaitOnZeroBlocksUntilNotify)
{
    ISemaphore semaphore(0);
    Waiter waiter(semaphore);

    EXPECT_FALSE(waiter.PassesWithin(shortWhile));
    semaphore.Notify();

    EXPECT_TRUE(waiter.PassesWithin(patience));
    EXPECT_FALSE(semaphore.TryWait());
}

TEST(ISemaphoreTest, EachNotifyLetsOneOfSeveralWaitersPass)
{
    ISemaphore semaphore(0);
    std::atomic<int> passed = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            semaphore.Wait();
            ++passed;
        });
    }

    for (int notified = 1; notified <= 4; ++notified) {
        semaphore.Notify();
        Eventually([&] { return passed >= notified; });
        std::this_thread::sleep_for(10ms);  // time for a Wait() that passes without a token
        EXPECT_EQ(passed, notified);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(ISemaphoreTest, WhatWasWrittenBeforeNotifyIsSeenAfterWait)
{
    ISemaphore there(0);
    ISemaphore back(0);
    int value = 0;
    std::thread writer([&] {
        for (int i = 1; i <= 1000; ++i) {
            value = i;
            there.Notify();
            back.Wait();
        }
    });

    for (int i = 1; i <= 1000; ++i) {
        there.Wait();
        ASSERT_EQ(value, i);
        back.Notify();
    }
    writer.join();
}

TEST(ISemaphoreTest, WokenThreadMayDestroyTheSemaphoreAtOnce)
{
    constexpr int rounds = Support::isEmulated ? 300 : 3000;
    for (int i = 0; i < rounds; ++i) {
        auto semaphore = std::make_unique<ISemaphore>(0);
        std::thread notifier([raw = semaphore.get()] { raw->Notify(); });

        semaphore->Wait();
        semaphore.reset();

        notifier.join();
    }
}

// ----------------------------------------------------------------------------------- cancellation

/// A thread that waits once and can be cancelled there. Tells how it ended.
class CancellableWaiter
{
public:
    explicit CancellableWaiter(ISemaphore& target) : semaphore(target)
    {
        pthread_create(&thread, nullptr, Run, this);
    }

    void Cancel() { pthread_cancel(thread); }

    /// @return true if the thread was cancelled, false if it passed.
    bool Join()
    {
        void* result = nullptr;
        pthread_join(thread, &result);
        return result == PTHREAD_CANCELED;
    }

    std::atomic<bool> passed = false;
    std::atomic<bool> unwound = false;  ///< the destructors of its stack have run

private:
    struct Unwinding
    {
        ~Unwinding() { flag = true; }
        std::atomic<bool>& flag;
    };

    static void* Run(void* self)
    {
        auto* const waiter = static_cast<CancellableWaiter*>(self);
        const Unwinding unwinding{waiter->unwound};
        waiter->semaphore.Wait();
        waiter->passed = true;
        return nullptr;
    }

    ISemaphore& semaphore;
    pthread_t thread = 0;
};

TEST(ISemaphoreTest, ThreadCancelledInWaitUnwindsAndLeavesTheSemaphoreUsable)
{
    ISemaphore semaphore(0);
    CancellableWaiter waiter(semaphore);
    std::this_thread::sleep_for(20ms);  // most likely blocked by now; the test is right in any case

    waiter.Cancel();

    EXPECT_TRUE(waiter.Join());
    EXPECT_TRUE(waiter.unwound);
    EXPECT_FALSE(waiter.passed);
    EXPECT_FALSE(semaphore.TryWait());  // would hang if the mutex were still locked
    semaphore.Notify();
    semaphore.Wait();
    EXPECT_EQ(Drain(semaphore), 0);
}

TEST(ISemaphoreTest, CancelRacingWithNotifyNeitherLosesNorDoublesTheToken)
{
    constexpr int rounds = Support::isEmulated ? 100 : 1000;
    for (int i = 0; i < rounds; ++i) {
        ISemaphore semaphore(0);
        CancellableWaiter waiter(semaphore);
        std::thread notifier([&semaphore] { semaphore.Notify(); });

        waiter.Cancel();

        waiter.Join();
        notifier.join();
        ASSERT_EQ(Drain(semaphore), waiter.passed ? 0 : 1);
    }
}

TEST(ISemaphoreTest, CancelledWaiterDoesNotTakeTheWakeUpOfAnother)
{
    constexpr int rounds = Support::isEmulated ? 100 : 1000;
    for (int i = 0; i < rounds; ++i) {
        ISemaphore semaphore(0);
        CancellableWaiter victim(semaphore);
        CancellableWaiter other(semaphore);

        semaphore.Notify();
        victim.Cancel();

        victim.Join();
        if (victim.passed) {
            semaphore.Notify();  // the cancelled thread took the token; add one for the other
        }
        EXPECT_FALSE(other.Join());  // hangs if the token was lost
        ASSERT_TRUE(other.passed);
        ASSERT_EQ(Drain(semaphore), 0);
    }
}

// ----------------------------------------------------------------------------------------- torture

/// Lets 8 threads notify and 8 threads take, and checks that all tokens are taken.
/// @param take  Takes one token; returns false if there was none.
template <typename Take>
void ExpectNoTokenLost(Take take)
{
    constexpr int threadsASide = 8;
    constexpr std::int64_t tokensAThread = Support::isEmulated ? 5000 : 125000;
    constexpr std::int64_t tokens = threadsASide * tokensAThread;
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    ISemaphore semaphore(0);
    std::atomic<std::int64_t> produced = 0;
    std::atomic<std::int64_t> taken = 0;
    std::atomic<bool> enough = false;

    std::vector<std::thread> producers;
    std::vector<std::thread> consumers;
    for (int i = 0; i < threadsASide; ++i) {
        producers.emplace_back([&] {
            std::int64_t own = 0;
            while (own < tokensAThread && std::chrono::steady_clock::now() < deadline) {
                semaphore.Notify();
                ++own;
            }
            produced += own;
        });
        consumers.emplace_back([&] {
            while (!enough) {
                if (take(semaphore)) {
                    ++taken;
                }
            }
        });
    }
    for (std::thread& producer : producers) {
        producer.join();
    }

    Eventually([&] { return taken >= produced; });
    EXPECT_EQ(taken, produced);
    EXPECT_LE(produced, tokens);

    enough = true;
    for (int i = 0; i < threadsASide; ++i) {
        semaphore.Notify();  // for the threads that are blocked
    }
    for (std::thread& consumer : consumers) {
        consumer.join();
    }
    EXPECT_EQ(taken + Drain(semaphore), produced + threadsASide);
}

TEST(ISemaphoreTest, MillionTokensFromEightProducersReachEightConsumers)
{
    ExpectNoTokenLost([](ISemaphore& semaphore) {
        semaphore.Wait();
        return true;
    });
}

TEST(ISemaphoreTest, MillionTokensFromEightProducersReachEightPollingConsumers)
{
    ExpectNoTokenLost([](ISemaphore& semaphore) {
        const bool taken = semaphore.TryWait();
        if (!taken) {
            std::this_thread::yield();
        }
        return taken;
    });
}

}  // namespace
}  // namespace Tolvex::Interfaces
