// All behaviour of the timer that needs no expiry. The rest is in TimerExpiryTest.cpp.

#include "Tolvex/Util/Timer.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/TimerCalls.h"

namespace Tolvex::Util {
namespace {

using Support::ChildResult;
using Support::RunInChild;
using Support::ThreadsBusyAtFork;
using Support::TimerCalls;

constexpr int never = 60000;  // a period in ms that does not pass in these tests
constexpr int stackBytes = 16384;
constexpr char unableText[] = "Unable to delete timer .... !!!!!\n";

static_assert(std::is_base_of_v<Interfaces::IError, Timer>);
static_assert(std::has_virtual_destructor_v<Timer>);
static_assert(!std::is_copy_constructible_v<Timer> && !std::is_copy_assignable_v<Timer>);
static_assert(!std::is_move_constructible_v<Timer> && !std::is_move_assignable_v<Timer>);

std::string ErrorText(const std::string& method, const std::string& message)
{
    return "[Namespace: Tolvex::Util][Class: Timer][Method: " + method + "]" + message;
}

void DoNothing(Timer*) {}

void Expire(Timer* timer)
{
    union sigval value;
    value.sival_ptr = timer;
    Timer::CB(value);
}

itimerspec SettingOf(timer_t timerId)
{
    itimerspec setting = {};
    EXPECT_EQ(timer_gettime(timerId, &setting), 0);
    return setting;
}

/// Limits the timers and queued signals of this user; with 0 no timer can be created. For child
/// processes.
void LimitTimers(rlim_t number)
{
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_SIGPENDING, &limit), 0);
    limit.rlim_cur = std::min(number, limit.rlim_max);
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &limit), 0);
}

std::atomic<int> attributesDestroyed;

class TimerTest : public ::testing::Test
{
protected:
    void SetUp() override { TimerCalls::Reset(); }

    TimerCalls& calls = TimerCalls::Get();
};

// ------------------------------------------------------------------------------ place holder

TEST_F(TimerTest, PlaceHolderCreatesNoSystemTimer)
{
    {
        const Timer timer;
        EXPECT_EQ(timer.GetErrorText(), "");
        EXPECT_EQ(timer.GetErrorCode(), 0);
        EXPECT_EQ(timer.GetUserData(), nullptr);
    }
    EXPECT_TRUE(calls.created.empty());
    EXPECT_TRUE(calls.set.empty());
    EXPECT_TRUE(calls.deleted.empty());
}

TEST_F(TimerTest, SetTimeOnPlaceHolderFailsAndSaysWhy)
{
    Timer timer;

    EXPECT_FALSE(timer.SetTime(100));

    EXPECT_EQ(timer.GetErrorText(), ErrorText("SetTime", "Timer not initialized"));
    EXPECT_TRUE(calls.set.empty());
}

TEST_F(TimerTest, RemoveOnPlaceHolderSucceedsAndDoesNothing)
{
    Timer timer;

    EXPECT_TRUE(timer.Remove());
    EXPECT_TRUE(timer.Remove());

    EXPECT_TRUE(calls.deleted.empty());
}

TEST_F(TimerTest, CreateOnPlaceHolderFailsAndLeavesIt)
{
    Timer timer;

    EXPECT_FALSE(timer.Create());
    EXPECT_EQ(timer.GetErrorText(), ErrorText("Create", "Create timer error"));

    EXPECT_FALSE(timer.SetTime(100));
    EXPECT_EQ(timer.GetErrorText(), ErrorText("SetTime", "Timer not initialized"));
    EXPECT_TRUE(timer.Remove());
}

// ------------------------------------------------------------------------------- construction

TEST_F(TimerTest, ConstructorCreatesAndArmsOneTimerOnTheRealTimeClock)
{
    int data = 0;

    Timer timer(never, DoNothing, &data, stackBytes);

    EXPECT_EQ(timer.GetErrorText(), "");
    EXPECT_EQ(timer.GetUserData(), &data);
    ASSERT_EQ(calls.created.size(), 1U);
    EXPECT_EQ(calls.created[0].clock, CLOCK_REALTIME);
    EXPECT_EQ(calls.created[0].result, 0);
    ASSERT_EQ(calls.set.size(), 1U);
    EXPECT_EQ(calls.set[0].timerId, calls.created[0].timerId);
    EXPECT_EQ(calls.set[0].flags, 0);
    EXPECT_EQ(calls.set[0].result, 0);
}

TEST_F(TimerTest, ExpiriesAreAskedForOnThreadsOfTheGivenStackThatGetTheTimer)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);

    ASSERT_EQ(calls.created.size(), 1U);
    EXPECT_EQ(calls.created[0].notify, SIGEV_THREAD);
    EXPECT_EQ(calls.created[0].function, &Timer::CB);
    EXPECT_EQ(calls.created[0].value, &timer);
    ASSERT_TRUE(calls.created[0].hasAttributes);
    EXPECT_EQ(calls.created[0].stackSize, static_cast<std::size_t>(stackBytes));
    EXPECT_EQ(calls.created[0].detachState, PTHREAD_CREATE_DETACHED);
}

TEST_F(TimerTest, TheAttributeObjectIsNotDestroyed)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer destroys attributes where no test may count yet";
#endif
    attributesDestroyed = 0;

    const Timer timer(never, DoNothing, nullptr, stackBytes);

    EXPECT_EQ(attributesDestroyed, 0);
}

class RefusedStackTest : public TimerTest, public ::testing::WithParamInterface<int>
{
};

TEST_P(RefusedStackTest, LeavesTheDefaultSizeAndReportsNothing)
{
    pthread_attr_t attributes;
    std::size_t defaultSize = 0;
    pthread_attr_init(&attributes);
    pthread_attr_getstacksize(&attributes, &defaultSize);
    pthread_attr_destroy(&attributes);

    const Timer timer(never, DoNothing, nullptr, GetParam());

    EXPECT_EQ(timer.GetErrorText(), "");
    ASSERT_EQ(calls.created.size(), 1U);
    EXPECT_EQ(calls.created[0].stackSize, defaultSize);
    EXPECT_EQ(calls.created[0].detachState, PTHREAD_CREATE_DETACHED);
}

INSTANTIATE_TEST_SUITE_P(TooSmall, RefusedStackTest,
                         ::testing::Values(0, 1, 4096, stackBytes - 1, -1, -stackBytes, INT_MIN));

class AcceptedStackTest : public TimerTest, public ::testing::WithParamInterface<int>
{
};

TEST_P(AcceptedStackTest, IsAskedForToTheByte)
{
    const Timer timer(never, DoNothing, nullptr, GetParam());

    EXPECT_EQ(timer.GetErrorText(), "");
    ASSERT_EQ(calls.created.size(), 1U);
    EXPECT_EQ(calls.created[0].stackSize, static_cast<std::size_t>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Sizes, AcceptedStackTest,
                         ::testing::Values(stackBytes, 20001, 524288, INT_MAX));

TEST_F(TimerTest, FailureToArmInTheConstructorIsLeftInTheText)
{
    Timer timer(-5, DoNothing, nullptr, stackBytes);
    EXPECT_EQ(timer.GetErrorText(), ErrorText("SetTime", "Set timer error"));

    EXPECT_TRUE(timer.SetTime(never));
    EXPECT_EQ(timer.GetErrorText(), "");
}

TEST_F(TimerTest, FailureToCreateInTheConstructorShowsAsNotInitialized)
{
    const ChildResult result = RunInChild([] {
        LimitTimers(0);

        Timer timer(never, DoNothing, nullptr, stackBytes);

        EXPECT_EQ(timer.GetErrorText(), ErrorText("SetTime", "Timer not initialized"));
        EXPECT_TRUE(timer.Remove());
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST_F(TimerTest, TheCallableIsMovedNeverCopied)
{
    struct Counting
    {
        explicit Counting(int& counter) : copies(counter) {}
        Counting(const Counting& other) : copies(other.copies) { ++copies; }
        Counting(Counting&& other) noexcept : copies(other.copies) {}
        void operator()(Timer*) const {}

        int& copies;
    };
    int copies = 0;
    std::function<void(Timer*)> work{Counting(copies)};
    copies = 0;

    Timer timer(never, std::move(work), nullptr, stackBytes);
    Expire(&timer);

    EXPECT_EQ(copies, 0);
}

// ----------------------------------------------------------------------------------- SetTime

struct Period
{
    int milliseconds;
    long seconds;
    long nanoseconds;
};

class PeriodTest : public TimerTest, public ::testing::WithParamInterface<Period>
{
};

TEST_P(PeriodTest, ArmsRelativelyWithFirstExpiryAndIntervalAlike)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);

    // The next call disarms short periods at once: no timer may expire in this file.
    const bool armed = timer.SetTime(GetParam().milliseconds);
    timer.SetTime(0);

    EXPECT_TRUE(armed);
    const auto& call = calls.set.at(1);
    EXPECT_EQ(call.flags, 0);
    EXPECT_EQ(call.times.it_interval.tv_sec, GetParam().seconds);
    EXPECT_EQ(call.times.it_interval.tv_nsec, GetParam().nanoseconds);
    EXPECT_EQ(call.times.it_value.tv_sec, GetParam().seconds);
    EXPECT_EQ(call.times.it_value.tv_nsec, GetParam().nanoseconds);
}

INSTANTIATE_TEST_SUITE_P(Accepted, PeriodTest,
                         ::testing::Values(Period{0, 0, 0}, Period{999, 0, 999000000},
                                           Period{1000, 1, 0}, Period{1001, 1, 1000000},
                                           Period{1500, 1, 500000000}, Period{60000, 60, 0},
                                           Period{INT_MAX, 2147483, 647000000}));

class RefusedPeriodTest : public TimerTest, public ::testing::WithParamInterface<int>
{
};

TEST_P(RefusedPeriodTest, FailsAndKeepsTheSettingBefore)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);

    EXPECT_FALSE(timer.SetTime(GetParam()));

    EXPECT_EQ(timer.GetErrorText(), ErrorText("SetTime", "Set timer error"));
    const itimerspec setting = SettingOf(calls.created.at(0).timerId);
    EXPECT_EQ(setting.it_interval.tv_sec, never / 1000);
    EXPECT_TRUE(setting.it_value.tv_sec > 0 || setting.it_value.tv_nsec > 0);
}

// -1000 is negative only in its seconds, -5 only in its nanoseconds.
INSTANTIATE_TEST_SUITE_P(Negative, RefusedPeriodTest,
                         ::testing::Values(-1, -5, -999, -1000, -1500, INT_MIN));

TEST_F(TimerTest, SetTimeZeroDisarms)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);

    EXPECT_TRUE(timer.SetTime(0));

    EXPECT_EQ(timer.GetErrorText(), "");
    const itimerspec setting = SettingOf(calls.created.at(0).timerId);
    EXPECT_EQ(setting.it_interval.tv_sec, 0);
    EXPECT_EQ(setting.it_interval.tv_nsec, 0);
    EXPECT_EQ(setting.it_value.tv_sec, 0);
    EXPECT_EQ(setting.it_value.tv_nsec, 0);
}

TEST_F(TimerTest, SetTimeReplacesTheSettingBefore)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);

    EXPECT_TRUE(timer.SetTime(90500));

    const itimerspec setting = SettingOf(calls.created.at(0).timerId);
    EXPECT_EQ(setting.it_interval.tv_sec, 90);
    EXPECT_EQ(setting.it_interval.tv_nsec, 500000000);
    EXPECT_GT(setting.it_value.tv_sec, 60);
}

TEST_F(TimerTest, SetTimeThatSucceedsEmptiesTheText)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);
    ASSERT_FALSE(timer.SetTime(-5));

    EXPECT_TRUE(timer.SetTime(never));

    EXPECT_EQ(timer.GetErrorText(), "");
}

// ------------------------------------------------------------------------------------ Remove

TEST_F(TimerTest, RemoveTwiceSucceedsAndDeletesOnce)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);

    EXPECT_TRUE(timer.Remove());
    EXPECT_TRUE(timer.Remove());

    ASSERT_EQ(calls.deleted.size(), 1U);
    EXPECT_EQ(calls.deleted[0], calls.created.at(0).timerId);
}

TEST_F(TimerTest, SetTimeAfterRemoveFailsAndSaysWhy)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);
    ASSERT_TRUE(timer.Remove());

    EXPECT_FALSE(timer.SetTime(100));

    EXPECT_EQ(timer.GetErrorText(), ErrorText("SetTime", "Timer not initialized"));
}

TEST_F(TimerTest, RemoveLeavesTheErrorTextAlone)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);
    ASSERT_FALSE(timer.SetTime(-5));

    EXPECT_TRUE(timer.Remove());
    EXPECT_TRUE(timer.Remove());

    EXPECT_EQ(timer.GetErrorText(), ErrorText("SetTime", "Set timer error"));
}

TEST_F(TimerTest, ForkedChildMayMakeATimerOfTheObjectOfItsParent)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);
    ASSERT_TRUE(timer.Remove());

    const ChildResult result = RunInChild([&timer] {
        EXPECT_TRUE(timer.Create());
        EXPECT_TRUE(timer.SetTime(never));
        EXPECT_TRUE(timer.Remove());
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

// A child process has the object but not the timer, so the system refuses to delete it.
TEST_F(TimerTest, RemoveThatFailsSaysSoOnStandardOutputAndLeavesTheErrorTextAlone)
{
    auto* const timer = new Timer(never, DoNothing, nullptr, stackBytes);
    ASSERT_FALSE(timer->SetTime(-5));

    const ChildResult result = RunInChild([timer] {
        const bool removed = timer->Remove();
        const bool textKept = timer->GetErrorText() == ErrorText("SetTime", "Set timer error");
        _exit(!removed && textKept ? 0 : 1);  // does not flush, because Remove() does
        return 0;
    });

    EXPECT_TRUE(result.Succeeded());
    EXPECT_EQ(result.output, unableText);
    delete timer;
}

TEST_F(TimerTest, RemoveThatFailsKeepsTheTimerForAnotherTry)
{
    auto* const timer = new Timer(never, DoNothing, nullptr, stackBytes);

    const ChildResult result = RunInChild([timer] {
        EXPECT_FALSE(timer->Remove());
        EXPECT_FALSE(timer->Remove());
        delete timer;  // tries again
        return 0;
    });

    EXPECT_TRUE(result.Succeeded());
    EXPECT_EQ(result.output, std::string(unableText) + unableText + unableText);
    delete timer;
}

TEST_F(TimerTest, ChildProcessMakesTimersOfItsOwn)
{
    const Timer parents(never, DoNothing, nullptr, stackBytes);

    const ChildResult result = RunInChild([] {
        Timer own(never, DoNothing, nullptr, stackBytes);
        EXPECT_EQ(own.GetErrorText(), "");
        EXPECT_TRUE(own.Remove());
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

// Expiries on other threads hold the lock of the list of timers almost all the time.
TEST_F(TimerTest, ChildProcessMakesTimersWhateverItsParentsThreadsWereDoing)
{
    std::atomic<bool> expiring = true;
    std::vector<std::thread> threads;
    for (int i = 0; i < ThreadsBusyAtFork(2); ++i) {
        threads.emplace_back([&expiring] {
            const Timer placeHolder;
            while (expiring) {
                // Of no living timer: searches the list and calls nothing.
                union sigval value;
                value.sival_ptr = &expiring;
                Timer::CB(value);
            }
        });
    }

    for (int i = 0; i < 50; ++i) {
        const ChildResult result = RunInChild([] {
            alarm(30);  // instead of a hang
            Timer own(0, DoNothing, nullptr, stackBytes);
            EXPECT_EQ(own.GetErrorText(), "");
            return 0;
        });
        EXPECT_TRUE(result.Succeeded()) << result.status << result.output;
    }

    expiring = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(TimerTest, ExpiryOfItsParentsTimerIsIgnoredInAChildProcess)
{
    int count = 0;
    Timer timer(
        never, [&count](Timer*) { ++count; }, nullptr, stackBytes);

    const ChildResult result = RunInChild([&] {
        Expire(&timer);
        return count;
    });
    Expire(&timer);

    EXPECT_EQ(result.ExitCode(), 0) << result.output;
    EXPECT_EQ(count, 1);
}

// --------------------------------------------------------------------------- Create, again

TEST_F(TimerTest, CreateOnLiveTimerReplacesIt)
{
    {
        Timer timer(never, DoNothing, nullptr, stackBytes);

        EXPECT_TRUE(timer.Create());
        EXPECT_TRUE(timer.SetTime(never));

        ASSERT_EQ(calls.created.size(), 2U);
        ASSERT_EQ(calls.deleted.size(), 1U);
        EXPECT_EQ(calls.deleted[0], calls.created[0].timerId);
        EXPECT_EQ(calls.set.back().timerId, calls.created[1].timerId);
    }
    ASSERT_EQ(calls.deleted.size(), 2U);
    EXPECT_EQ(calls.deleted[1], calls.created[1].timerId);
}

TEST_F(TimerTest, CreateAfterTheConstructorDoesNotUseItsAttributes)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);

    EXPECT_TRUE(timer.Create());

    ASSERT_EQ(calls.created.size(), 2U);
    EXPECT_EQ(calls.created[1].value, &timer);
    EXPECT_EQ(calls.created[1].function, &Timer::CB);
    EXPECT_FALSE(calls.created[1].hasAttributes);
}

TEST_F(TimerTest, CreateAfterRemoveMakesATimerWhoseExpiriesDoNothing)
{
    Timer timer(never, DoNothing, nullptr, stackBytes);
    ASSERT_TRUE(timer.Remove());

    EXPECT_TRUE(timer.Create());
    EXPECT_TRUE(timer.SetTime(never));

    ASSERT_EQ(calls.created.size(), 2U);
    EXPECT_EQ(calls.created[1].value, nullptr);
    EXPECT_EQ(calls.created[1].function, &Timer::CB);
}

TEST_F(TimerTest, CreateThatFailsSaysWhyAndKeepsTheTimer)
{
    const ChildResult result = RunInChild([] {
        Timer timer(never, DoNothing, nullptr, stackBytes);
        LimitTimers(0);

        EXPECT_FALSE(timer.Create());

        EXPECT_EQ(timer.GetErrorText(), ErrorText("Create", "Create timer error"));
        EXPECT_TRUE(timer.SetTime(never));
        EXPECT_EQ(timer.GetErrorText(), "");
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST_F(TimerTest, TimerThatCouldNotBeCreatedCanBeCreatedLater)
{
    const ChildResult result = RunInChild([] {
        LimitTimers(0);
        Timer timer(never, DoNothing, nullptr, stackBytes);
        EXPECT_FALSE(timer.Create());
        LimitTimers(RLIM_INFINITY);

        EXPECT_TRUE(timer.Create());

        EXPECT_EQ(timer.GetErrorText(), "");
        EXPECT_TRUE(timer.SetTime(never));
        EXPECT_TRUE(timer.Remove());
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

// --------------------------------------------------------------------------------- callback

TEST_F(TimerTest, ExpiryCallsTheCallbackWithTheTimerOnTheThreadItComesOn)
{
    Timer* called = nullptr;
    std::thread::id thread;
    Timer timer(
        0,
        [&](Timer* self) {
            called = self;
            thread = std::this_thread::get_id();
        },
        nullptr, stackBytes);

    Expire(&timer);

    EXPECT_EQ(called, &timer);
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(TimerTest, EveryExpiryCallsTheSameCallable)
{
    int last = 0;
    Timer timer(
        never, [&last, count = 0](Timer*) mutable { last = ++count; }, nullptr, stackBytes);

    Expire(&timer);
    Expire(&timer);
    Expire(&timer);

    EXPECT_EQ(last, 3);
}

TEST_F(TimerTest, ExpiryWithoutATimerIsIgnored)
{
    EXPECT_NO_THROW(Expire(nullptr));
}

TEST_F(TimerTest, ExpiryOfAnEmptyCallbackThrowsBadFunctionCall)
{
    Timer placeHolder;
    Timer empty(never, nullptr, nullptr, stackBytes);

    EXPECT_THROW(Expire(&placeHolder), std::bad_function_call);
    EXPECT_THROW(Expire(&empty), std::bad_function_call);
}

TEST_F(TimerTest, ExceptionOfTheCallbackPassesAndTheTimerStaysUsable)
{
    int count = 0;
    Timer timer(
        never,
        [&count](Timer*) {
            if (++count == 1) {
                throw std::runtime_error("first");
            }
        },
        nullptr, stackBytes);

    EXPECT_THROW(Expire(&timer), std::runtime_error);
    Expire(&timer);

    EXPECT_EQ(count, 2);
    EXPECT_TRUE(timer.SetTime(never));
}

TEST_F(TimerTest, ExpiryOfADestroyedTimerDoesNotReadItsMemory)
{
    int count = 0;
    alignas(Timer) unsigned char memory[sizeof(Timer)];
    auto* const timer = new (memory) Timer(
        never, [&count](Timer*) { ++count; }, nullptr, stackBytes);
    timer->~Timer();
    std::memset(memory, 0xA5, sizeof memory);

    Expire(timer);

    EXPECT_EQ(count, 0);
}

TEST_F(TimerTest, ExpiryOfADeletedTimerIsIgnored)
{
    int count = 0;
    auto* const timer = new Timer(
        never, [&count](Timer*) { ++count; }, nullptr, stackBytes);
    delete timer;

    Expire(timer);  // the address sanitizer sees any access

    EXPECT_EQ(count, 0);
}

TEST_F(TimerTest, CallbackMayDestroyItsTimerAndKeepsItsCaptures)
{
    auto state = std::make_shared<std::string>("captured text, longer than a small string holds");
    const std::weak_ptr<std::string> watched = state;
    std::string seen;
    auto* const timer = new Timer(
        never,
        [&seen, held = std::move(state)](Timer* self) {
            delete self;
            seen = *held;
        },
        nullptr, stackBytes);

    Expire(timer);

    EXPECT_EQ(seen, "captured text, longer than a small string holds");
    EXPECT_TRUE(watched.expired());
}

TEST_F(TimerTest, DestructionReleasesTheCallbackRemovalDoesNot)
{
    auto state = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = state;
    {
        Timer timer(
            never, [held = std::move(state)](Timer*) {}, nullptr, stackBytes);

        EXPECT_TRUE(timer.Remove());

        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

TEST_F(TimerTest, CallbackMayArmAndRemoveItsTimer)
{
    bool armed = false;
    bool removed = false;
    Timer timer(
        never,
        [&](Timer* self) {
            armed = self->SetTime(never);
            removed = self->Remove();
        },
        nullptr, stackBytes);

    Expire(&timer);

    EXPECT_TRUE(armed);
    EXPECT_TRUE(removed);
    EXPECT_FALSE(timer.SetTime(never));
}

TEST_F(TimerTest, TimersAreToldApart)
{
    int first = 0;
    int second = 0;
    Timer one(
        never, [&first](Timer*) { ++first; }, nullptr, stackBytes);
    Timer two(
        never, [&second](Timer*) { ++second; }, nullptr, stackBytes);

    Expire(&two);

    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 1);
}

TEST_F(TimerTest, ManyTimersMadeAndDestroyedLeaveNoneBehind)
{
    constexpr std::size_t count = 1000;

    for (std::size_t i = 0; i < count; ++i) {
        const Timer timer(never, DoNothing, nullptr, stackBytes);
        ASSERT_EQ(timer.GetErrorText(), "");
    }

    EXPECT_EQ(calls.created.size(), count);
    EXPECT_EQ(calls.deleted.size(), count);
}

TEST_F(TimerTest, TimersAreMadeAndDestroyedOnManyThreadsAtOnce)
{
    constexpr int rounds = 200;
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < rounds; ++round) {
                int count = 0;
                Timer timer(
                    never, [&count](Timer*) { ++count; }, nullptr, stackBytes);
                Expire(&timer);
                EXPECT_EQ(count, 1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(calls.created.size(), calls.deleted.size());
}

// A cancellation that left the destructor would end the process.
TEST_F(TimerTest, CancelledThreadDestroysATimerWhoseRemovalFails)
{
    auto* const timer = new Timer(never, DoNothing, nullptr, stackBytes);

    const ChildResult result = RunInChild([timer] {
        pthread_t thread;
        const auto destroy = [](void* argument) -> void* {
            pthread_cancel(pthread_self());
            delete static_cast<Timer*>(argument);
            pthread_testcancel();
            return nullptr;
        };
        void* outcome = nullptr;
        EXPECT_EQ(pthread_create(&thread, nullptr, destroy, timer), 0);
        EXPECT_EQ(pthread_join(thread, &outcome), 0);
        EXPECT_EQ(outcome, PTHREAD_CANCELED);
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
    EXPECT_EQ(result.output, unableText);
    delete timer;
}

}  // namespace
}  // namespace Tolvex::Util

#if !defined(__SANITIZE_THREAD__)
extern "C" int pthread_attr_destroy(pthread_attr_t* attributes) noexcept
{
    static auto* const next =
        Tolvex::Support::RealFunction<decltype(pthread_attr_destroy)>("pthread_attr_destroy");
    ++Tolvex::Util::attributesDestroyed;
    return next(attributes);
}
#endif
